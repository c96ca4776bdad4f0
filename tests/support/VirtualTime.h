#pragma once

#include <chrono>
#include <functional>
#include <string>

/**
 * While it lives, sleeps of the thread that made it take no time and move a clock instead. Those of other threads, of a
 * key polling thread between two scans, are as Others says. One at a time.
 */
class VirtualTime {
public:
    enum class Others {
        Sleep, ///< as ever
        Wait,  ///< until scan or wake ends them: a scan happens exactly when it is wanted
        Run    ///< not at all
    };
    /** Gets each sleep of the owner as "10us", "300ms" or "2s"; with the result false a signal interrupts it halfway.
     */
    using Listener = std::function<bool(const std::string& sleep)>;

    explicit VirtualTime(Others others = Others::Sleep, Listener listener = nullptr);
    ~VirtualTime();
    VirtualTime(const VirtualTime&) = delete;
    VirtualTime& operator=(const VirtualTime&) = delete;

    /** @return the sum of the owner's sleeps; usable from several threads */
    std::chrono::nanoseconds now() const;

    /** @return how long another thread wanted to sleep, the last one that began to */
    std::chrono::nanoseconds pause() const;

    /** Waits until a polling thread sleeps, as it does after the first scan, and is not to be woken. */
    void awaitSleeper();

    /** Lets the polling thread, which has to sleep, scan once and waits until it sleeps again. */
    void scan();

    /** Ends one sleep of a polling thread, the next one if it does not sleep yet, and waits for nothing. */
    void wake();
};
