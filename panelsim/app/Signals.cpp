#include "panelsim/app/Signals.h"

#include <csignal>
#include <unistd.h>

namespace panelsim {

Signals::Signals()
{
    sigset_t ours;
    sigemptyset(&ours);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGCHLD, SIG_DFL); // ignored, the end of a child would go by without a trace
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
        struct sigaction action {};
        sigaction(number, nullptr, &action);
        if (action.sa_handler != SIG_IGN) {
            sigaddset(&ours, number);
        }
    }
    arrivals = FileDescriptor(signalfd(-1, &ours, SFD_NONBLOCK | SFD_CLOEXEC), "cannot wait for signals");
    pthread_sigmask(SIG_BLOCK, &ours, nullptr);
}

std::optional<signalfd_siginfo> Signals::take() const
{
    signalfd_siginfo taken{};
    return read(arrivals.get(), &taken, sizeof taken) == sizeof taken ? std::optional(taken) : std::nullopt;
}

} // namespace panelsim
