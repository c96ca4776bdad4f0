#include "tests/support/VirtualTime.h"

#include <cerrno>
#include <ctime>
#include <utility>

namespace {

using namespace std::chrono_literals;

std::atomic<VirtualTime*> active{nullptr};

std::string describe(std::chrono::nanoseconds sleep)
{
    for (const auto& [unit, name] : {std::pair<std::chrono::nanoseconds, const char*>(1s, "s"), {1ms, "ms"}}) {
        if (sleep % unit == 0ns) {
            return std::to_string(sleep / unit) + name;
        }
    }
    return std::to_string(sleep / 1us) + "us";
}

} // namespace

// Stands before the C library's in the lookup of every library of this process.
extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* wanted, timespec* remaining)
{
    VirtualTime* const time = active;
    const auto left = time == nullptr ? std::nullopt : time->sleep(1s * wanted->tv_sec + 1ns * wanted->tv_nsec);
    if (!left) {
        errno = clock_nanosleep(CLOCK_MONOTONIC, 0, wanted, remaining);
        return errno == 0 ? 0 : -1;
    }
    *remaining = {static_cast<std::time_t>(*left / 1s), static_cast<long>((*left % 1s).count())};
    errno = EINTR;
    return *left > 0ns ? -1 : 0;
}

VirtualTime::VirtualTime(Others ofOthers, Listener itsListener) : others(ofOthers), listener(std::move(itsListener))
{
    active = this;
}

VirtualTime::~VirtualTime()
{
    active = nullptr;
}

std::optional<std::chrono::nanoseconds> VirtualTime::sleep(std::chrono::nanoseconds wanted)
{
    if (std::this_thread::get_id() == owner) {
        clock += wanted.count();
        return !listener || listener(describe(wanted)) ? 0ns : wanted / 2;
    }
    latestPause = wanted.count();
    if (others == Others::Wait) {
        std::unique_lock<std::mutex> lock(mutex);
        ++sleeping;
        changed.notify_all();
        changed.wait(lock, [this] { return awakenings > 0; });
        --awakenings;
        --sleeping;
    }
    return others == Others::Sleep ? std::nullopt : std::optional(0ns);
}

void VirtualTime::awaitSleeper()
{
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [this] { return sleeping > 0 && awakenings == 0; });
}

void VirtualTime::scan()
{
    wake();
    awaitSleeper();
}

void VirtualTime::wake()
{
    const std::lock_guard<std::mutex> lock(mutex);
    ++awakenings;
    changed.notify_all();
}
