#include "tools/Interrupt.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace tools {

Interrupt::Interrupt()
{
    struct sigaction hangup {};
    sigaction(SIGHUP, nullptr, &hangup);
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    if (hangup.sa_handler != SIG_IGN) {
        sigaddset(&signals, SIGHUP);
    }
    arrival = signalfd(-1, &signals, SFD_CLOEXEC);
    destruction = eventfd(0, EFD_CLOEXEC);
    if (arrival < 0 || destruction < 0) {
        throw std::system_error(errno, std::generic_category(), "cannot wait for signals");
    }
    pthread_sigmask(SIG_BLOCK, &signals, &previousMask);
    watcher = std::thread(&Interrupt::watch, this);
}

Interrupt::~Interrupt()
{
    eventfd_write(destruction, 1);
    watcher.join();
    // Until now the signals are pending. One that was waited for has had its effect.
    constexpr timespec noTime{};
    while (noticed && sigtimedwait(&signals, nullptr, &noTime) > 0) {
    }
    pthread_sigmask(SIG_SETMASK, &previousMask, nullptr);
    std::signal(SIGPIPE, previousPipeHandler);
    close(arrival);
    close(destruction);
}

bool Interrupt::wait(std::optional<Clock::time_point> deadline, int descriptor)
{
    using std::chrono::milliseconds;
    const auto isOver = [&] { return deadline && Clock::now() >= *deadline; };
    const auto left = deadline ? std::chrono::ceil<milliseconds>(*deadline - Clock::now()) : milliseconds(-1);
    pollfd events[] = {{arrival, POLLIN, 0}, {descriptor, POLLIN, 0}};
    poll(events, 2, isOver() ? 0 : static_cast<int>(left.count()));
    noticed = noticed || events[0].revents != 0;
    return events[1].revents != 0 && !noticed && !ended && !isOver();
}

void Interrupt::watch() const
{
    pollfd events[] = {{destruction, POLLIN, 0}, {arrival, POLLIN, 0}};
    poll(events, 2, -1);
    while (poll(events, 1, 1000) == 0) {
        pollfd outputs[] = {{STDOUT_FILENO, POLLOUT, 0}, {STDERR_FILENO, POLLOUT, 0}};
        if (poll(outputs, 2, 0) < 2) {
            for (const int ending : {SIGINT, SIGTERM, SIGHUP}) {
                std::signal(ending, SIG_DFL);
            }
            pthread_sigmask(SIG_UNBLOCK, &signals, nullptr); // a pending one ends the process
        }
    }
}

} // namespace tools
