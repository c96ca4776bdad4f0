#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace panelsim {

/**
 * Counts changes of any kind, and lets threads sleep until the next one. Who waits takes the count first and looks at
 * what may have changed afterwards, so that no change goes unseen. All operations may be called from several threads.
 */
class ChangeSignal {
public:
    using Lock = std::unique_lock<std::mutex>;

    void notify()
    {
        const Lock lock(mutex);
        ++changes;
        changed.notify_all();
    }
    std::uint64_t count() const { return wait(0, {}); }
    /** @return the count, once it differs from the one seen or the deadline is over */
    std::uint64_t wait(std::uint64_t seen, std::chrono::steady_clock::time_point deadline) const
    {
        Lock lock(mutex);
        changed.wait_until(lock, deadline, [&] { return changes != seen; });
        return changes;
    }

private:
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::uint64_t changes = 0;
};

} // namespace panelsim
