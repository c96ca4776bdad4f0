#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

/**
 * While it lives, sleeps of the thread that made it take no time and move a clock instead. Those of other threads, of a
 * key polling thread between two scans, are as Others says. One at a time.
 */
class VirtualTime {
public:
    enum class Others {
        Sleep, ///< as without it
        Wait,  ///< until scan or wake ends them: a scan happens exactly when it is wanted
        Run    ///< not at all
    };
    /** Gets each sleep of the owner as "10us", "300ms" or "2s"; when it returns false, a signal interrupts it halfway.
     */
    using Listener = std::function<bool(const std::string& sleep)>;

    explicit VirtualTime(Others others = Others::Sleep, Listener listener = nullptr);
    ~VirtualTime();
    VirtualTime(const VirtualTime&) = delete;
    VirtualTime& operator=(const VirtualTime&) = delete;

    /** @return the sum of the owner's sleeps; usable from several threads */
    std::chrono::nanoseconds now() const { return std::chrono::nanoseconds(clock); }

    /** @return how long another thread wanted to sleep, the last one that began to */
    std::chrono::nanoseconds pause() const { return std::chrono::nanoseconds(latestPause); }

    /** @return how many threads wait in a sleep */
    unsigned sleepers() const { return sleeping; }

    /** Waits until a polling thread sleeps, as it does after the first scan, and is not to be woken. */
    void awaitSleeper();

    /** Lets the polling thread, which has to sleep, scan once and waits until it sleeps again. */
    void scan();

    /** Ends one sleep of a polling thread, the next one if it does not sleep yet, and waits for nothing. */
    void wake();

    /** A thread wants to sleep. @return how much of it remains, interrupted; empty when it has to sleep in real time */
    std::optional<std::chrono::nanoseconds> sleep(std::chrono::nanoseconds wanted);

private:
    const std::thread::id owner = std::this_thread::get_id();
    const Others others;
    const Listener listener;
    std::atomic<std::chrono::nanoseconds::rep> clock{0};
    std::atomic<std::chrono::nanoseconds::rep> latestPause{0};
    std::mutex mutex;
    std::condition_variable changed;
    std::atomic<unsigned> sleeping{0};
    unsigned awakenings = 0; ///< sleeps that may end
};
