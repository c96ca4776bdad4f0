#include "tests/support/VirtualTime.h"

#include <cerrno>

using namespace std::chrono_literals;

std::atomic<VirtualTime*> VirtualTime::active{nullptr};

// Stands before the C library's in the lookup of every library of this process.
extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* wanted, timespec* remaining)
{
    VirtualTime* const time = VirtualTime::active;
    const bool isOwner = time != nullptr && std::this_thread::get_id() == time->owner;
    const std::chrono::nanoseconds duration = 1s * wanted->tv_sec + 1ns * wanted->tv_nsec;
    if (isOwner) {
        time->clock += duration.count();
        if (time->listener && !time->listener(std::to_string(duration / 1us) + "us")) {
            const std::chrono::nanoseconds left = duration / 2;
            *remaining = {static_cast<std::time_t>(left / 1s), static_cast<long>((left % 1s).count())};
            errno = EINTR;
            return -1;
        }
    } else if (time == nullptr) {
        errno = clock_nanosleep(CLOCK_MONOTONIC, 0, wanted, remaining);
        return errno == 0 ? 0 : -1;
    } else {
        time->latestPause = duration.count();
        if (!time->listener) {
            ++time->sleeping;
            sem_post(&time->asleep);
            VirtualTime::await(time->awake);
            --time->sleeping;
        }
    }
    return 0;
}

void VirtualTime::await(sem_t& event)
{
    while (sem_wait(&event) != 0) { // interrupted by a signal
    }
}
