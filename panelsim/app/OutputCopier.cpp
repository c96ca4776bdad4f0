#include "panelsim/app/OutputCopier.h"

#include "panelsim/app/Output.h"

#include <algorithm>
#include <cerrno>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace panelsim {

namespace {

constexpr std::size_t mostRead = 65536;
constexpr int patienceAtEnd = 2000; // milliseconds

} // namespace

OutputCopier::OutputCopier(FileDescriptor pipeEnd, int target, LogLine::Source itsSource, AppLog& itsLog)
    : from(std::move(pipeEnd)), to(target), source(itsSource), log(itsLog)
{
}

pollfd OutputCopier::awaited() const
{
    return unwritten.empty() ? pollfd{from.get(), POLLIN, 0} : pollfd{to, POLLOUT, 0};
}

void OutputCopier::step()
{
    if (unwritten.empty()) {
        read(mostRead);
    }
    write();
}

void OutputCopier::finish()
{
    int available = 0;
    ioctl(from.get(), FIONREAD, &available);
    for (auto left = static_cast<std::size_t>(available); !unwritten.empty() || (left > 0 && from.get() >= 0);) {
        if (unwritten.empty()) {
            read(std::min(left, mostRead));
            left -= std::min(left, mostRead);
        }
        pollfd polled{to, POLLOUT, 0};
        if (!unwritten.empty() && poll(&polled, 1, patienceAtEnd) == 0) {
            discarding = true;
            unwritten.clear();
        }
        write();
    }
    log.endLine(source);
}

void OutputCopier::read(std::size_t most)
{
    std::string bytes(most, '\0');
    const ssize_t count = ::read(from.get(), bytes.data(), most);
    if (count == 0 || (count < 0 && errno != EINTR)) {
        from.close();
    }
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    log.append(source, bytes);
    if (!discarding) {
        unwritten = std::move(bytes);
    }
}

void OutputCopier::write()
{
    while (!unwritten.empty()) {
        const ssize_t written = writeSome(to, unwritten);
        if (written >= 0) {
            unwritten.erase(0, static_cast<std::size_t>(written));
        } else if (errno == EAGAIN || errno == EINTR) {
            return;
        } else {
            unwritten.clear();
            if (errno == EPIPE) {
                from.close(); // the application meets the same as if it had written there itself
            } else {
                discarding = true; // a full disk, say: the application may go on, and the log does
            }
        }
    }
}

} // namespace panelsim
