#include "tools/Interrupt.h"

#include <poll.h>
#include <unistd.h>

namespace tools {

namespace {

/** Ends the watching thread. It is sent for urgent data of sockets, which a panel does not use. */
constexpr int wakeUpSignal = SIGURG;

bool outputStalls()
{
    pollfd outputs[] = {{STDOUT_FILENO, POLLOUT, 0}, {STDERR_FILENO, POLLOUT, 0}};
    return poll(outputs, 2, 0) < 2;
}

} // namespace

Interrupt::Interrupt()
{
    struct sigaction hangup {};
    sigaction(SIGHUP, nullptr, &hangup);
    sigemptyset(&signals);
    for (const int ending : {SIGINT, SIGTERM, SIGHUP, wakeUpSignal}) {
        sigaddset(&signals, ending);
    }
    if (hangup.sa_handler == SIG_IGN) {
        sigdelset(&signals, SIGHUP);
    }
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
    pthread_kill(watcher.native_handle(), wakeUpSignal);
    watcher.join();
    // An impatient user sends the signal twice; the second one must not undo the orderly end.
    constexpr timespec noTime{};
    while (noticed && sigtimedwait(&signals, nullptr, &noTime) > 0) {
    }
    pthread_sigmask(SIG_SETMASK, &previousMask, nullptr);
    std::signal(SIGPIPE, previousPipeHandler);
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
    int taken = wakeUpSignal;
    std::unique_lock<std::mutex> lock(mutex);
    while (taken == wakeUpSignal) { // another process may send it as well
        if (destroyed) {
            return;
        }
        lock.unlock();
        sigwait(&signals, &taken);
        lock.lock();
    }
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
