#include "panelsim/app/Output.h"

#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace panelsim {

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
    while (!bytes.empty()) {
        const ssize_t written = write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EAGAIN) {
            pollfd polled{descriptor, POLLOUT, 0};
            poll(&polled, 1, -1);
        } else if (written < 0 && errno != EINTR) {
            return false;
        }
        bytes.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
    return true;
}

void say(const std::string& text)
{
    writeAll(STDERR_FILENO, "panelsim: " + text + "\n");
}

} // namespace panelsim
