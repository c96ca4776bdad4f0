#pragma once

#include <chrono>

namespace frontpanelhw {

/**
 * Puts the calling thread to sleep for at least the given time. A sleep that a signal interrupts goes on with the
 * time that remains. The two units are slept as given, in one sleep; fraction is below one second.
 */
void wait(std::chrono::seconds seconds, std::chrono::nanoseconds fraction);

/** Sleeps for less than a second, likewise. */
void wait(std::chrono::nanoseconds fraction);

} // namespace frontpanelhw
