#include "tests/support/VirtualTime.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <iterator>
#include <mutex>
#include <thread>
#include <utility>

namespace {

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

std::string describe(std::chrono::nanoseconds sleep)
{
    const auto in = [sleep](std::int64_t unit, const char* name) {
        return sleep.count() % unit == 0 ? std::to_string(sleep.count() / unit) + name : "";
    };
    const std::string texts[] = {in(1'000'000'000, "s"), in(1'000'000, "ms"), in(1000, "us")};
    return *std::find_if(std::begin(texts), std::end(texts), [](const std::string& text) { return !text.empty(); });
}

int sleepOfOwner(std::chrono::nanoseconds wanted, timespec& remaining)
{
    clockNanoseconds += wanted.count();
    if (!listener || listener(describe(wanted))) {
        return 0;
    }
    remaining.tv_sec /= 2;
    remaining.tv_nsec /= 2;
    errno = EINTR;
    return -1;
}

} // namespace

// Stands before the C library's in the lookup of every library of this process.
extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* wanted, timespec* remaining)
{
    const auto duration = std::chrono::seconds(wanted->tv_sec) + std::chrono::nanoseconds(wanted->tv_nsec);
    if (active && std::this_thread::get_id() == owner) {
        *remaining = *wanted;
        return sleepOfOwner(duration, *remaining);
    }
    if (!active || others == VirtualTime::Others::Sleep) {
        errno = clock_nanosleep(CLOCK_MONOTONIC, 0, wanted, remaining);
        return errno == 0 ? 0 : -1;
    }
    pauseNanoseconds = duration.count();
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
    changed.wait(lock, [] { return sleeping > 0 && awakenings == 0; });
}

void VirtualTime::scan()
{
    std::unique_lock<std::mutex> lock(mutex);
    const std::uint64_t before = begun;
    ++awakenings;
    changed.notify_all();
    changed.wait(lock, [before] { return begun > before; });
}

void VirtualTime::wake()
{
    const std::lock_guard<std::mutex> lock(mutex);
    ++awakenings;
    changed.notify_all();
}
