#include "panelsim/app/Output.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace panelsim {

namespace {

constexpr int patience = 2000; // milliseconds

/**
 * A pipe opened once more, to write to it without waiting: that it was ready a moment ago says little where others
 * write, too, and O_NONBLOCK for the descriptor that was given would hold for those others as well. Anything else, and
 * a pipe that cannot be opened, stays the descriptor that it is.
 */
struct NonBlocking {
    explicit NonBlocking(int given) : descriptor(given)
    {
        struct stat status {};
        if (fstat(given, &status) == 0 && S_ISFIFO(status.st_mode)) {
            const std::string path = "/proc/self/fd/" + std::to_string(given);
            const int opened = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            descriptor = opened >= 0 ? opened : given;
        }
    }

    int descriptor; // stays open until the process ends
};

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
    static const NonBlocking output(STDOUT_FILENO);
    static const NonBlocking error(STDERR_FILENO);
    const NonBlocking& target = descriptor == STDOUT_FILENO ? output : error;
    return write(target.descriptor, bytes.data(), std::min<std::size_t>(bytes.size(), PIPE_BUF));
}

void writeAll(int descriptor, std::string_view bytes)
{
    static std::atomic<bool> outputGivenUp{false};
    static std::atomic<bool> errorGivenUp{false};
    std::atomic<bool>& givenUp = descriptor == STDOUT_FILENO ? outputGivenUp : errorGivenUp;
    while (!bytes.empty()) {
        pollfd polled{descriptor, POLLOUT, 0};
        if (poll(&polled, 1, givenUp ? 0 : patience) == 0) {
            givenUp = true;
            return;
        }
        const ssize_t written = writeSome(descriptor, bytes);
        if (written >= 0) {
            givenUp = false;
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR && errno != EAGAIN) {
            return;
        }
    }
}

void say(const std::string& text)
{
    writeAll(STDERR_FILENO, "panelsim: " + text + "\n");
}

} // namespace panelsim
