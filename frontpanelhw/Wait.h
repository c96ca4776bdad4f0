#pragma once

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <limits>

namespace frontpanelhw {

/**
 * Puts the calling thread to sleep for at least the duration, which is not negative. A sleep that a signal interrupts
 * goes on with the time that remains.
 */
template <typename Duration>
void wait(Duration duration)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
    // A 32-bit time_t holds 68 years; longer waits would turn negative and be refused.
    constexpr std::chrono::seconds::rep longest = std::numeric_limits<std::time_t>::max();
    timespec remaining{static_cast<std::time_t>(std::min(seconds.count(), longest)),
                       static_cast<long>(std::chrono::nanoseconds(duration - seconds).count())};
    while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
    }
}

} // namespace frontpanelhw
