#include "tools/Interrupt.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <poll.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace tools {

namespace {

bool isIgnored(int signal)
{
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

int pollTimeout(std::optional<Interrupt::Clock::time_point> deadline)
{
    if (!deadline) {
        return -1;
    }
    constexpr std::int64_t longest = std::int64_t{60} * 60 * 1000;
    const auto remaining = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Interrupt::Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(remaining.count(), 0, longest));
}

} // namespace

Interrupt::Interrupt()
{
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    if (!isIgnored(SIGHUP)) {
        sigaddset(&signals, SIGHUP);
    }
    signalDescriptor =
        std::make_unique<Descriptor>(signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC), "cannot wait for signals");

    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &previousPipeAction);
    pthread_sigmask(SIG_BLOCK, &signals, &previousMask);
}

Interrupt::~Interrupt()
{
    // An impatient user sends the signal twice; the second one must not undo the orderly end.
    while (interrupted && takeSignal()) {
    }
    pthread_sigmask(SIG_SETMASK, &previousMask, nullptr);
    sigaction(SIGPIPE, &previousPipeAction, nullptr);
}

Interrupt::Wakeup Interrupt::wait(std::optional<Clock::time_point> deadline, int descriptor)
{
    while (!interrupted) {
        pollfd polled[] = {{signalDescriptor->get(), POLLIN, 0}, {descriptor, POLLIN, 0}};
        const int timeout = pollTimeout(deadline);
        const int ready = poll(polled, 2, timeout);
        if (ready < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "cannot wait");
        }
        if (takeSignal()) {
            interrupted = true;
        } else if (deadline && Clock::now() >= *deadline) {
            return Wakeup::TimedOut; // also while there is always more to read
        } else if (ready > 0 && polled[1].revents != 0) {
            return Wakeup::Readable;
        }
    }
    return Wakeup::Interrupted;
}

bool Interrupt::takeSignal()
{
    signalfd_siginfo taken{};
    return read(signalDescriptor->get(), &taken, sizeof taken) == sizeof taken;
}

} // namespace tools
