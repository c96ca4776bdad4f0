#pragma once

#include <atomic>
#include <chrono>
#include <ctime>
#include <functional>
#include <semaphore.h>
#include <string>
#include <thread>
#include <utility>

/**
 * While it lives, sleeps of the thread that made it take no time and move a clock instead. With a
 * listener, other threads do not sleep either. Without one, a key polling thread sleeps between two scans until scan or
 * wake ends that, so that a scan happens exactly when it is wanted. One at a time.
 */
class VirtualTime {
public:
    /** Gets each sleep of the owner as "10us", say; when it returns false, a signal interrupts it halfway. */
    using Listener = std::function<bool(const std::string& sleep)>;

    explicit VirtualTime(Listener itsListener = nullptr) : listener(std::move(itsListener))
    {
        sem_init(&asleep, 0, 0);
        sem_init(&awake, 0, 0);
        active = this;
    }
    ~VirtualTime() { active = nullptr; }

    /** @return the sum of the owner's sleeps; usable from several threads */
    std::chrono::nanoseconds now() const { return std::chrono::nanoseconds(clock); }

    /** @return how long another thread wanted to sleep, the last one that began to */
    std::chrono::nanoseconds pause() const { return std::chrono::nanoseconds(latestPause); }

    /** @return how many threads wait in a sleep */
    unsigned sleepers() const { return sleeping; }

    /** Waits until a polling thread sleeps, once for each of its sleeps that scan does not wait for. */
    void awaitSleeper() { await(asleep); }

    /** Lets the polling thread, which sleeps, scan once and waits until it sleeps again. */
    void scan()
    {
        wake();
        awaitSleeper();
    }

    /** Ends one sleep of a polling thread, the next one if it does not sleep yet, and waits for nothing. */
    void wake() { sem_post(&awake); }

private:
    friend int ::nanosleep(const timespec* wanted, timespec* remaining);

    static void await(sem_t& event);

    static std::atomic<VirtualTime*> active; ///< defined beside nanosleep, so that who uses this gets that linked

    const std::thread::id owner = std::this_thread::get_id();
    const Listener listener;
    std::atomic<std::chrono::nanoseconds::rep> clock{0};
    std::atomic<std::chrono::nanoseconds::rep> latestPause{0};
    std::atomic<unsigned> sleeping{0};
    sem_t asleep;
    sem_t awake;
};
