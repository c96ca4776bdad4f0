#include "panelsim/app/OutputCopier.h"

#include "panelsim/app/Output.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <poll.h>
#include <string_view>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace panelsim {

OutputCopier::OutputCopier(FileDescriptor pipeEnd, int target, LogLine::Source itsSource, AppLog& itsLog)
    : from(std::move(pipeEnd)), to(target), source(itsSource), log(itsLog),
      endEvent(eventfd(0, EFD_CLOEXEC), "cannot open an event"), copying([this] { copy(); })
{
}

OutputCopier::~OutputCopier()
{
    const std::uint64_t one = 1;
    static_cast<void>(write(endEvent.get(), &one, sizeof one));
    copying.join();
    log.endLine(source);
}

void OutputCopier::copy()
{
    std::array<char, 65536> buffer{};
    while (waitForMore()) {
        const ssize_t count = read(from.get(), buffer.data(), buffer.size());
        if (count == 0 || (count < 0 && errno != EINTR)) {
            return;
        }
        const std::string_view bytes(buffer.data(), count < 0 ? 0 : static_cast<std::size_t>(count));
        log.append(source, bytes);
        if (!writeAll(to, bytes)) {
            // Nobody reads it any more: the application meets the same as if it had written there itself.
            from.close();
            return;
        }
    }
}

/** @return false when nothing is left to copy and the end is wanted */
bool OutputCopier::waitForMore()
{
    std::array<pollfd, 2> polled{{{from.get(), POLLIN, 0}, {endEvent.get(), POLLIN, 0}}};
    while (poll(polled.data(), polled.size(), -1) < 0) {
        if (errno != EINTR) {
            return false;
        }
    }
    return polled[0].revents != 0;
}

} // namespace panelsim
