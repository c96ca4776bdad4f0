#include "panelsim/app/Output.h"

#include "panelsim/board/Text.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <poll.h>
#include <sstream>
#include <unistd.h>

namespace panelsim {

namespace {

constexpr int readerPatience = 2000; // milliseconds

} // namespace

int writeSome(int descriptor, std::string& bytes, int milliseconds)
{
    pollfd polled{descriptor, POLLOUT, 0};
    while (!bytes.empty() && poll(&polled, 1, milliseconds) != 0) {
        // So much fits at least.
        const ssize_t count = write(descriptor, bytes.data(), std::min<std::size_t>(bytes.size(), PIPE_BUF));
        if (count < 0 && errno != EAGAIN) {
            bytes.clear();
            return errno;
        }
        bytes.erase(0, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    return 0;
}

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

} // namespace panelsim
