#pragma once

#include "tools/Interrupt.h"
#include "tools/Wiring.h"

#include <optional>

namespace tools {

/**
 * Shows on a panel what its keys do. After a lamp test, key events go to the display, to standard output and to the LED
 * of the key's number, which is on while the key is pressed. Goes on when an LED or the display fails. Ends when the
 * time is over, when interrupted or when standard output fails, and leaves LEDs off and the display empty.
 * @param seconds how long to go on after the lamp test; until interrupted, when empty
 * @throws std::exception at the end, for the first LED or page that failed, and at once when a pin throws
 */
void runDemo(Wiring wiring, unsigned lampSeconds, std::optional<unsigned> seconds, Interrupt& interrupt);

} // namespace tools
