#include "panelsim/app/OutputCopier.h"

#include "panelsim/app/Output.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <poll.h>
#include <string_view>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace panelsim {

namespace {

constexpr int patienceAtEnd = 2000; // milliseconds

} // namespace

OutputCopier::OutputCopier(FileDescriptor pipeEnd, int target, LogLine::Source itsSource, AppLog& itsLog)
    : from(std::move(pipeEnd)), to(target), source(itsSource), log(itsLog),
      endEvent(eventfd(0, EFD_CLOEXEC), "cannot open an event"), copying([this] { copy(); })
{
}

OutputCopier::~OutputCopier()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t size = write(endEvent.get(), &one, sizeof one);
    copying.join();
    log.endLine(source);
}

void OutputCopier::copy()
{
    std::array<char, 65536> buffer{};
    while (waitForMore()) {
        const ssize_t count = read(from.get(), buffer.data(), ending ? std::min(left, buffer.size()) : buffer.size());
        if (count == 0 || (count < 0 && errno != EINTR)) {
            return;
        }
        const std::string_view bytes(buffer.data(), count < 0 ? 0 : static_cast<std::size_t>(count));
        left -= ending ? bytes.size() : 0;
        log.append(source, bytes);
        pass(bytes);
    }
}

/** @return false when nothing is left to copy and the end is wanted, or nobody reads any more */
bool OutputCopier::waitForMore()
{
    while (!ending && from.get() >= 0) {
        std::array<pollfd, 2> polled{{{from.get(), POLLIN, 0}, {endEvent.get(), POLLIN, 0}}};
        if (poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR) {
            return false;
        }
        if (polled[1].revents != 0) {
            takeEnd();
        } else if (polled[0].revents != 0) {
            return true;
        }
    }
    return left > 0 && from.get() >= 0;
}

void OutputCopier::pass(std::string_view bytes)
{
    while (!bytes.empty() && !discarding && waitUntilTaken()) {
        const ssize_t written = writeSome(to, bytes);
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EPIPE) {
            // Nobody reads it any more: the application meets the same as if it had written there itself.
            from.close();
            return;
        } else if (errno != EINTR && errno != EAGAIN) {
            discarding = true; // a full disk, say: the application may go on, and the log does
        }
    }
}

/** @return whether the descriptor takes bytes */
bool OutputCopier::waitUntilTaken()
{
    while (true) {
        std::array<pollfd, 2> polled{{{to, POLLOUT, 0}, {ending ? -1 : endEvent.get(), POLLIN, 0}}};
        const int ready = poll(polled.data(), polled.size(), ending ? patienceAtEnd : -1);
        if (polled[0].revents != 0) {
            return true;
        }
        if (polled[1].revents != 0) {
            takeEnd();
        } else if (ready == 0 || errno != EINTR) {
            discarding = true;
            return false;
        }
    }
}

void OutputCopier::takeEnd()
{
    ending = true;
    int available = 0;
    if (ioctl(from.get(), FIONREAD, &available) == 0) {
        left = static_cast<std::size_t>(available);
    }
}

} // namespace panelsim
