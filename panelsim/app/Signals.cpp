#include "panelsim/app/Signals.h"

#include <sys/signalfd.h>
#include <unistd.h>

namespace panelsim {

namespace {

bool isIgnored(int number)
{
    struct sigaction action {};
    sigaction(number, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

} // namespace

Signals::Signals()
{
    sigset_t ours;
    sigemptyset(&ours);
    // Ignored, the end of a child would go by without a trace.
    std::signal(SIGCHLD, SIG_DFL);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
        if (!isIgnored(number)) {
            sigaddset(&ours, number);
        }
    }
    arrivals = FileDescriptor(signalfd(-1, &ours, SFD_NONBLOCK | SFD_CLOEXEC), "cannot wait for signals");
    pthread_sigmask(SIG_BLOCK, &ours, &mask);

    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, nullptr);
}

std::optional<Signals::Arrived> Signals::take() const
{
    signalfd_siginfo taken{};
    if (read(arrivals.get(), &taken, sizeof taken) != sizeof taken) {
        return std::nullopt;
    }
    return Arrived{static_cast<int>(taken.ssi_signo), taken.ssi_code == SI_KERNEL};
}

} // namespace panelsim
