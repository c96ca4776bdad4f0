#include "panelsim/board/ChangeSignal.h"

namespace panelsim {

void ChangeSignal::notify()
{
    const std::lock_guard<std::mutex> lock(mutex);
    ++changes;
    changed.notify_all();
}

std::uint64_t ChangeSignal::count() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return changes;
}

std::uint64_t ChangeSignal::wait(std::uint64_t seen, Clock::time_point deadline) const
{
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait_until(lock, deadline, [&] { return changes != seen; });
    return changes;
}

} // namespace panelsim
