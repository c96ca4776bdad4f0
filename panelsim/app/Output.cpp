#include "panelsim/app/Output.h"

#include "panelsim/board/Text.h"

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

/**
 * Writes what is taken, waiting so long for each part of it, and removes it.
 * @return 0, or the number of an error after which no more can be written
 */
int writeSome(int descriptor, std::string& bytes, int milliseconds)
{
    pollfd polled{descriptor, POLLOUT, 0};
    std::size_t done = 0;
    int error = 0;
    while (error == 0 && done < bytes.size() && poll(&polled, 1, milliseconds) != 0) {
        // So much fits at least.
        const ssize_t count = write(descriptor, &bytes[done], std::min<std::size_t>(bytes.size() - done, PIPE_BUF));
        done += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
        error = count >= 0 || errno == EAGAIN || errno == EINTR ? 0 : errno;
    }
    bytes.erase(0, error == 0 ? done : std::string::npos);
    return error;
}

} // namespace

void writeAll(int descriptor, std::string bytes)
{
    static std::atomic<bool> givenUp{false}; // one reader that stands still is not waited for again
    writeSome(descriptor, bytes, givenUp ? 0 : readerPatience);
    givenUp = !bytes.empty();
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
    const int error = writeSome(to, unwritten, 0);
    if (error == EPIPE) {
        from.close(); // the application meets the same as if it had written there itself
    }
    discarding = discarding || error != 0; // a full disk, say: the application may go on, and the log does
}

void OutputCopier::finish()
{
    int available = 0;
    ioctl(from.get(), FIONREAD, &available);
    read(static_cast<std::size_t>(available));
    writeAll(to, unwritten);
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
    unwritten += discarding ? "" : bytes;
}

} // namespace panelsim
