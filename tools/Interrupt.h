#pragma once

#include "tools/Descriptor.h"

#include <chrono>
#include <csignal>
#include <memory>
#include <optional>

namespace tools {

/**
 * The user's wish to end the command: SIGINT, SIGTERM or, unless it is ignored as under nohup, SIGHUP.
 *
 * From construction to destruction the signals are blocked in the constructing thread and in every thread it starts,
 * so that they never end the process while pins are held; they are read where the main thread waits. A signal that
 * came but was never waited for takes its usual effect after destruction. SIGPIPE is ignored meanwhile: a reader that
 * has gone shows as a write error.
 */
class Interrupt {
public:
    using Clock = std::chrono::steady_clock;

    /** What ended a wait. */
    enum class Wakeup { Interrupted, Readable, TimedOut };

    /** To be constructed before any other thread is started. @throws std::system_error */
    Interrupt();
    ~Interrupt();

    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    /**
     * Waits for a signal or for one of the others. Once a signal came, every wait ends at once.
     * @param deadline   when to give up; never, without one
     * @param descriptor also ends the wait when it becomes readable, -1 for none
     */
    Wakeup wait(std::optional<Clock::time_point> deadline, int descriptor = -1);

private:
    bool takeSignal();

    struct sigaction previousPipeAction {};
    sigset_t signals{};
    sigset_t previousMask{};
    std::unique_ptr<Descriptor> signalDescriptor;
    bool interrupted = false;
};

} // namespace tools
