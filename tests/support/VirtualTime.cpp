#include "tests/support/VirtualTime.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <thread>
#include <utility>

namespace {

constexpr std::chrono::seconds patience(30);

std::atomic<bool> active{false};
std::thread::id owner;
std::atomic<VirtualTime::Others> others;
VirtualTime::Listener listener;
std::atomic<std::int64_t> clockNanoseconds{0};
std::atomic<std::int64_t> pauseNanoseconds{0};

std::mutex mutex;
std::condition_variable changed;
std::uint64_t sleeping = 0;   // polling threads in their sleep
std::uint64_t begun = 0;      // their sleeps so far
std::uint64_t awakenings = 0; // sleeps that may end

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
    ++begun;
    ++sleeping;
    changed.notify_all();
    changed.wait(lock, [] { return awakenings > 0 || !active; });
    awakenings -= awakenings > 0 ? 1 : 0;
    --sleeping;
}

std::int64_t nanosecondsOf(const timespec& sleep)
{
    return std::int64_t{sleep.tv_sec} * 1'000'000'000 + sleep.tv_nsec;
}

std::string describe(const timespec& sleep)
{
    std::string text = sleep.tv_sec != 0 ? std::to_string(sleep.tv_sec) + "s" : "";
    if (sleep.tv_nsec % 1000000 != 0) {
        return text + std::to_string(sleep.tv_nsec / 1000) + "us";
    }
    return sleep.tv_nsec != 0 ? text + std::to_string(sleep.tv_nsec / 1000000) + "ms" : text;
}

int sleepOfOwner(const timespec& wanted, timespec& remaining)
{
    clockNanoseconds += nanosecondsOf(wanted);
    if (!listener || listener(describe(wanted))) {
        return 0;
    }
    remaining = {wanted.tv_sec / 2, wanted.tv_nsec / 2};
    errno = EINTR;
    return -1;
}

} // namespace

// Stands before the C library's in the lookup of every library of this process.
extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* wanted, timespec* remaining)
{
    const bool own = active && std::this_thread::get_id() == owner;
    if (own) {
        return sleepOfOwner(*wanted, *remaining);
    }
    if (!active || others == VirtualTime::Others::Sleep) {
        errno = clock_nanosleep(CLOCK_MONOTONIC, 0, wanted, remaining);
        return errno == 0 ? 0 : -1;
    }
    pauseNanoseconds = nanosecondsOf(*wanted);
    if (others == VirtualTime::Others::Wait) {
        sleepUntilWoken();
    }
    return 0;
}

VirtualTime::VirtualTime(Others ofOthers, Listener itsListener)
{
    owner = std::this_thread::get_id();
    others = ofOthers;
    listener = std::move(itsListener);
    clockNanoseconds = 0;
    awakenings = 0;
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

std::chrono::nanoseconds VirtualTime::pause() const
{
    return std::chrono::nanoseconds(pauseNanoseconds);
}

void VirtualTime::awaitSleeper()
{
    std::unique_lock<std::mutex> lock(mutex);
    await(lock, [] { return sleeping > 0 && awakenings == 0; });
}

void VirtualTime::scan()
{
    std::unique_lock<std::mutex> lock(mutex);
    const std::uint64_t before = begun;
    ++awakenings;
    changed.notify_all();
    await(lock, [before] { return begun > before; });
}

void VirtualTime::wake()
{
    const std::lock_guard<std::mutex> lock(mutex);
    ++awakenings;
    changed.notify_all();
}
