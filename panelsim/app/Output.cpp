#include "panelsim/app/Output.h"

#include "panelsim/board/Utf8.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sstream>
#include <sys/ioctl.h>
#include <unistd.h>

namespace panelsim {

namespace {

constexpr int readerPatience = 2000; // milliseconds
constexpr std::size_t mostRead = 65536;

bool isTaken(int descriptor, int milliseconds)
{
    pollfd polled{descriptor, POLLOUT, 0};
    return poll(&polled, 1, milliseconds) != 0;
}

/** Removes what was written. @return false for an error that is not over soon */
bool writeSome(int descriptor, std::string_view& bytes)
{
    // So much fits at least.
    const ssize_t written = write(descriptor, bytes.data(), std::min<std::size_t>(bytes.size(), PIPE_BUF));
    bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    return written >= 0 || errno == EAGAIN || errno == EINTR;
}

} // namespace

void occupyStandardDescriptors()
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) == -1) {
            // The lowest free number is this one, as the ones below are taken.
            static_cast<void>(open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY));
        }
    }
}

bool writeAll(int descriptor, std::string_view bytes)
{
    static std::atomic<bool> givenUp{false}; // one reader that stands still is not waited for again
    while (!bytes.empty()) {
        givenUp = !isTaken(descriptor, givenUp ? 0 : readerPatience);
        if (givenUp || !writeSome(descriptor, bytes)) {
            return false;
        }
    }
    return true;
}

void say(const std::string& text)
{
    std::istringstream lines(text);
    std::string said = "panelsim: ";
    for (std::string line; std::getline(lines, line);) {
        said += printable(line) + "\n";
    }
    writeAll(STDERR_FILENO, said);
}

OutputCopier::OutputCopier(int target, LogLine::Source itsSource, AppLog& itsLog)
    : to(target), source(itsSource), log(itsLog)
{
    int ends[2] = {-1, -1};
    from = FileDescriptor(pipe2(ends, O_CLOEXEC) == 0 ? ends[0] : -1, "cannot open a pipe");
    writing = FileDescriptor(ends[1], "");
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
    std::string_view bytes = unwritten;
    while (!bytes.empty() && isTaken(to, 0)) {
        if (!writeSome(to, bytes)) {
            bytes = {};
            if (errno == EPIPE) {
                from.close(); // the application meets the same as if it had written there itself
            } else {
                discarding = true; // a full disk, say: the application may go on, and the log does
            }
        }
    }
    unwritten.erase(0, unwritten.size() - bytes.size());
}

void OutputCopier::finish()
{
    int available = 0;
    ioctl(from.get(), FIONREAD, &available);
    auto left = static_cast<std::size_t>(available);
    do {
        discarding = !writeAll(to, unwritten) || discarding;
        unwritten.clear();
        left -= read(std::min(left, mostRead));
    } while (!unwritten.empty() || (left > 0 && from.get() >= 0));
    log.endLine(source);
}

/** @return how many bytes were read: all that there were, at the end */
std::size_t OutputCopier::read(std::size_t most)
{
    std::string bytes(most, '\0');
    const ssize_t count = ::read(from.get(), bytes.data(), most);
    if (count == 0 || (count < 0 && errno != EINTR)) {
        from.close();
    }
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    log.append(source, bytes);
    unwritten = discarding ? std::string() : bytes;
    return bytes.size();
}

} // namespace panelsim
