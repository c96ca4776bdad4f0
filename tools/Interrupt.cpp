#include "tools/Interrupt.h"

#include <algorithm>
#include <iterator>
#include <poll.h>
#include <unistd.h>

namespace tools {

namespace {

/** Ends the watching thread. */
int wakeUpSignal()
{
    return SIGRTMIN;
}

bool isIgnored(int signal)
{
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

bool outputStalls()
{
    pollfd polled[] = {{STDOUT_FILENO, POLLOUT, 0}, {STDERR_FILENO, POLLOUT, 0}};
    return poll(polled, std::size(polled), 0) >= 0 &&
           std::any_of(std::begin(polled), std::end(polled), [](const pollfd& output) { return output.revents == 0; });
}

} // namespace

Interrupt::Interrupt()
{
    sigemptyset(&signals);
    for (const int ending : {SIGINT, SIGTERM, SIGHUP, wakeUpSignal()}) {
        if (ending != SIGHUP || !isIgnored(SIGHUP)) {
            sigaddset(&signals, ending);
        }
    }
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &previousPipeAction);
    pthread_sigmask(SIG_BLOCK, &signals, &previousMask);
    watcher = std::thread(&Interrupt::watch, this);
}

Interrupt::~Interrupt()
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        destroyed = true;
    }
    changed.notify_all();
    pthread_kill(watcher.native_handle(), wakeUpSignal());
    watcher.join();
    // An impatient user sends the signal twice; the second one must not undo the orderly end.
    constexpr timespec noTime{};
    while (noticed && sigtimedwait(&signals, nullptr, &noTime) > 0) {
    }
    pthread_sigmask(SIG_SETMASK, &previousMask, nullptr);
    sigaction(SIGPIPE, &previousPipeAction, nullptr);
    if (signal != 0 && !noticed) {
        raise(signal);
    }
}

bool Interrupt::wait(std::optional<Clock::time_point> deadline)
{
    std::unique_lock<std::mutex> lock(mutex);
    const auto due = [this] { return woken || ended; };
    if (deadline) {
        changed.wait_until(lock, *deadline, due);
    } else {
        changed.wait(lock, due);
    }
    noticed = ended;
    const bool timeIsOver = deadline && Clock::now() >= *deadline; // also if wake is called all the time
    const bool goOn = woken && !ended && !timeIsOver;
    woken = false;
    return goOn;
}

void Interrupt::wake()
{
    const std::lock_guard<std::mutex> lock(mutex);
    woken = true;
    changed.notify_all();
}

void Interrupt::end()
{
    const std::lock_guard<std::mutex> lock(mutex);
    ended = true;
    changed.notify_all();
}

void Interrupt::watch()
{
    int taken = 0;
    sigwait(&signals, &taken);
    if (taken == wakeUpSignal()) {
        return;
    }
    std::unique_lock<std::mutex> lock(mutex);
    signal = taken;
    ended = true;
    changed.notify_all();
    while (!changed.wait_for(lock, std::chrono::seconds(1), [this] { return destroyed; })) {
        if (outputStalls()) {
            std::signal(taken, SIG_DFL);
            pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
            raise(taken);
        }
    }
}

} // namespace tools
