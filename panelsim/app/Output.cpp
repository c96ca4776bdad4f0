#include "panelsim/app/Output.h"

#include "panelsim/board/Utf8.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <fcntl.h>
#include <poll.h>
#include <sstream>
#include <unistd.h>

namespace panelsim {

namespace {

constexpr int patience = 2000; // milliseconds

bool isTaken(int descriptor, int milliseconds)
{
    pollfd polled{descriptor, POLLOUT, 0};
    return poll(&polled, 1, milliseconds) != 0;
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

ssize_t writeSome(int descriptor, std::string_view bytes)
{
    if (!isTaken(descriptor, 0)) {
        errno = EAGAIN;
        return -1;
    }
    return write(descriptor, bytes.data(), std::min<std::size_t>(bytes.size(), PIPE_BUF)); // so much fits at least
}

void writeAll(int descriptor, std::string_view bytes)
{
    static std::atomic<bool> givenUp{false}; // one reader that stands still is not waited for again
    while (!bytes.empty()) {
        if (!isTaken(descriptor, givenUp ? 0 : patience)) {
            givenUp = true;
            return;
        }
        const ssize_t written = writeSome(descriptor, bytes);
        if (written < 0 && errno != EINTR && errno != EAGAIN) {
            return;
        }
        bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
    givenUp = false;
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

} // namespace panelsim
