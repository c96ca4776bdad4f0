#include "tests/support/VirtualTime.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <thread>

namespace {

constexpr std::chrono::seconds patience(30);

std::atomic<bool> active{false};
std::thread::id owner;
std::atomic<std::int64_t> clockNanoseconds{0};

std::mutex mutex;
std::condition_variable changed;
std::uint64_t sleeping = 0;   // polling threads in their sleep
std::uint64_t fallings = 0;   // sleeps begun
std::uint64_t awakenings = 0; // sleeps that may end
bool runFreely = false;

template <typename Condition>
void await(std::unique_lock<std::mutex>& lock, Condition condition)
{
    if (!changed.wait_for(lock, patience, condition)) {
        std::fputs("VirtualTime: no polling thread came to sleep\n", stderr);
        std::abort();
    }
}

void sleepUntilWoken()
{
    std::unique_lock<std::mutex> lock(mutex);
    ++fallings;
    ++sleeping;
    changed.notify_all();
    changed.wait(lock, [] { return awakenings > 0 || runFreely || !active; });
    awakenings -= awakenings > 0 ? 1 : 0;
    --sleeping;
}

} // namespace

// Stands before the C library's in the lookup of every library of this process.
extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* wanted, timespec* remaining)
{
    if (!active) {
        errno = clock_nanosleep(CLOCK_MONOTONIC, 0, wanted, remaining);
        return errno == 0 ? 0 : -1;
    }
    if (std::this_thread::get_id() == owner) {
        clockNanoseconds += std::int64_t{wanted->tv_sec} * 1'000'000'000 + wanted->tv_nsec;
    } else {
        sleepUntilWoken();
    }
    return 0;
}

VirtualTime::VirtualTime()
{
    owner = std::this_thread::get_id();
    clockNanoseconds = 0;
    awakenings = 0;
    runFreely = false;
    active = true;
}

VirtualTime::~VirtualTime()
{
    const std::lock_guard<std::mutex> lock(mutex);
    active = false;
    changed.notify_all();
}

std::chrono::nanoseconds VirtualTime::now() const
{
    return std::chrono::nanoseconds(clockNanoseconds);
}

void VirtualTime::awaitSleeper()
{
    std::unique_lock<std::mutex> lock(mutex);
    await(lock, [] { return sleeping > 0 && awakenings == 0; });
}

void VirtualTime::scan()
{
    std::unique_lock<std::mutex> lock(mutex);
    const std::uint64_t before = fallings;
    ++awakenings;
    changed.notify_all();
    await(lock, [before] { return fallings > before; });
}

void VirtualTime::wake(std::uint64_t times)
{
    const std::lock_guard<std::mutex> lock(mutex);
    awakenings += times;
    changed.notify_all();
}

void VirtualTime::letRun()
{
    const std::lock_guard<std::mutex> lock(mutex);
    runFreely = true;
    changed.notify_all();
}
