#pragma once

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <optional>
#include <thread>

namespace tools {

/**
 * The user's wish to end the command: SIGINT, SIGTERM or, unless it is ignored as under nohup, SIGHUP.
 *
 * From construction to destruction the signals are blocked in the constructing thread and in every thread it starts,
 * so that they do not end the process while pins are held. A thread of its own takes the first one and ends the wait
 * of the main thread. A signal that came but was never waited for has its usual effect after destruction.
 *
 * If the command has not ended a second after the signal, and standard output or standard error accepts nothing, the
 * process ends by the signal: any thread may be blocked in writing to a pipe that nobody reads. SIGPIPE is ignored: a
 * reader that has gone shows as a write error.
 */
class Interrupt {
public:
    using Clock = std::chrono::steady_clock;

    /** To be constructed before any other thread is started. @throws std::system_error when no thread can be created */
    Interrupt();
    ~Interrupt();

    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    /**
     * Main thread. Waits until wake is called, until the deadline, if there is one, or until the command is to end.
     * @return true if wake was called, the time is not over and the command is not to end
     */
    bool wait(std::optional<Clock::time_point> deadline = std::nullopt);

    /** Any thread. Ends the wait, or else the next one. */
    void wake();

    /** Any thread. Ends this and every later wait, as a signal does. */
    void end();

private:
    void watch();

    void (*previousPipeHandler)(int) = std::signal(SIGPIPE, SIG_IGN);
    sigset_t signals{};
    sigset_t previousMask{};

    std::mutex mutex;
    std::condition_variable changed;
    bool woken = false;
    bool ended = false;
    bool noticed = false;   ///< a wait returned because of the end
    bool destroyed = false; ///< the destructor waits for the thread
    int signal = 0;         ///< the one that the thread took

    std::thread watcher;
};

} // namespace tools
