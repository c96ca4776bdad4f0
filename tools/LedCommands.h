#pragma once

#include "tools/Wiring.h"

namespace tools {

/**
 * Switches one LED and touches no other line.
 * @throws UsageError when there is no such LED
 * @throws std::exception when its pin fails
 */
void switchLed(const Wiring& wiring, unsigned led, bool on);

/** Switches every LED and touches no other line. @throws std::exception when a pin fails */
void switchAllLeds(const Wiring& wiring, bool on);

} // namespace tools
