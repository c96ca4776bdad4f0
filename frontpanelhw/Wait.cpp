#include "frontpanelhw/Wait.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <limits>

namespace frontpanelhw {

namespace {

void sleepOut(timespec remaining)
{
    while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
    }
}

} // namespace

void wait(std::chrono::seconds seconds, std::chrono::nanoseconds fraction)
{
    // A 32-bit time_t holds 68 years; longer waits would turn negative and be refused.
    constexpr std::chrono::seconds::rep longest = std::numeric_limits<std::time_t>::max();
    sleepOut({static_cast<std::time_t>(std::min(seconds.count(), longest)), static_cast<long>(fraction.count())});
}

void wait(std::chrono::nanoseconds fraction)
{
    sleepOut({0, static_cast<long>(fraction.count())});
}

} // namespace frontpanelhw
