#pragma once

#include "tools/Interrupt.h"
#include "tools/Wiring.h"

#include <optional>

namespace tools {

/** Durations in seconds. */
struct DemoTimes {
    unsigned lampTest = 2;
    std::optional<unsigned> afterLampTest; ///< until interrupted, without one
};

/**
 * Shows on a panel what its keys do. After a lamp test, key events go to the display, to standard output and to the LED
 * of the key's number, which is on while the key is pressed. Ends when the time is over, when interrupted or when
 * standard output fails, and leaves LEDs off and the display empty. A display that fails is reported once.
 * @return whether everything succeeded
 */
bool runDemo(const Wiring& wiring, const DemoTimes& times, Interrupt& interrupt);

} // namespace tools
