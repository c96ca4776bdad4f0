#pragma once

#include <chrono>
#include <cstdint>

/**
 * While it lives, sleeps of this process take no time. Those of the thread that made it move a clock. Those of any
 * other thread, a key polling thread's between two scans, last until somebody ends them: so a scan happens exactly when
 * it is wanted. One at a time.
 */
class VirtualTime {
public:
    VirtualTime();
    ~VirtualTime();
    VirtualTime(const VirtualTime&) = delete;
    VirtualTime& operator=(const VirtualTime&) = delete;

    /** @return the sum of the owner's sleeps */
    std::chrono::nanoseconds now() const;

    /** Waits until a polling thread sleeps, as it does after the first scan, and is not to be woken. */
    void awaitSleeper();

    /** Lets the polling thread, which has to sleep, scan once and waits until it sleeps again. */
    void scan();

    /**
     * Ends so many sleeps of a polling thread, those to come if it does not sleep yet, and waits for nothing. One ends
     * the thread when it is called while the panel is being stopped.
     */
    void wake(std::uint64_t times = 1);

    /** From now on, sleeps of polling threads take no time either. */
    void letRun();
};
