#include "panelsim/wire/StampedClock.h"

#include "panelsim/board/Board.h"

#include <algorithm>
#include <optional>

namespace panelsim {

namespace {

thread_local std::optional<std::chrono::nanoseconds> stampOfThread;

} // namespace

StampedClock::Operation::Operation(std::chrono::nanoseconds stamp)
{
    stampOfThread = stamp;
}

StampedClock::Operation::~Operation()
{
    stampOfThread.reset();
}

std::chrono::nanoseconds StampedClock::now()
{
    const std::chrono::nanoseconds real = Board::steadyTime();
    const std::int64_t time = std::min(stampOfThread.value_or(real), real).count();
    std::int64_t seen = latest;
    while (time > seen && !latest.compare_exchange_weak(seen, time)) {
    }
    return std::chrono::nanoseconds(std::max(time, seen));
}

} // namespace panelsim
