#include "tests/support/RecordedWaits.h"

#include <cerrno>
#include <ctime>

namespace {

struct Recording {
    std::function<void(const std::string&)> tell;
    bool interrupt = false;
};

thread_local Recording* recording = nullptr;

std::string describe(const timespec& wait)
{
    if (wait.tv_sec != 0) {
        return std::to_string(wait.tv_sec) + "s" + (wait.tv_nsec != 0 ? std::to_string(wait.tv_nsec) + "ns" : "");
    }
    if (wait.tv_nsec % 1000000 == 0) {
        return std::to_string(wait.tv_nsec / 1000000) + "ms";
    }
    return wait.tv_nsec % 1000 == 0 ? std::to_string(wait.tv_nsec / 1000) + "us" : std::to_string(wait.tv_nsec) + "ns";
}

} // namespace

// Stands before the C library's in the lookup of every library of this process.
extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* wanted, timespec* remaining)
{
    if (recording == nullptr) {
        const int error = clock_nanosleep(CLOCK_MONOTONIC, 0, wanted, remaining);
        errno = error;
        return error == 0 ? 0 : -1;
    }
    if (recording->tell) {
        recording->tell(describe(*wanted));
    }
    if (recording->interrupt) {
        recording->interrupt = false;
        *remaining = {wanted->tv_sec / 2, wanted->tv_nsec / 2};
        errno = EINTR;
        return -1;
    }
    return 0;
}

RecordedWaits::RecordedWaits(std::function<void(const std::string&)> tell)
{
    recording = new Recording{std::move(tell)};
}

RecordedWaits::~RecordedWaits()
{
    delete recording;
    recording = nullptr;
}

void RecordedWaits::interruptNext()
{
    recording->interrupt = true;
}
