#pragma once

#include <atomic>
#include <chrono>
#include <csignal>
#include <optional>
#include <thread>

namespace tools {

/**
 * The user's wish to end the command: SIGINT, SIGTERM or, unless it is ignored as under nohup, SIGHUP.
 *
 * From construction to destruction the signals are blocked in the constructing thread and in every thread it starts,
 * so that they do not end the process while pins are held. A signal that came but was never waited for has its usual
 * effect after destruction.
 *
 * If the command has not ended a second after the signal, and standard output or standard error accepts nothing, the
 * process ends by the signal: any thread may be blocked in writing to a pipe that nobody reads. SIGPIPE is ignored: a
 * reader that has gone shows as a write error.
 */
class Interrupt {
public:
    using Clock = std::chrono::steady_clock;

    /** To be constructed before any other thread is started. @throws std::system_error without descriptor or thread */
    Interrupt();
    ~Interrupt();

    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    /**
     * Main thread. Waits until the descriptor, if there is one, can be read, until the deadline, if there is one, or
     * until the command is to end.
     * @return true if the descriptor can be read, the time is not over and the command is not to end
     */
    bool wait(std::optional<Clock::time_point> deadline, int descriptor = -1);

    /** Any thread. Every later wait returns false. */
    void end() { ended = true; }

private:
    void watch() const;

    void (*previousPipeHandler)(int) = std::signal(SIGPIPE, SIG_IGN);
    sigset_t signals{};
    sigset_t previousMask{};
    int arrival = -1;     ///< readable once a signal has come
    int destruction = -1; ///< readable once the destructor waits for the watcher
    bool noticed = false; ///< a wait returned because of a signal
    std::atomic<bool> ended{false};
    std::thread watcher; ///< ends the process if the signal does not end the command
};

} // namespace tools
