#pragma once

#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "tools/Interrupt.h"
#include "tools/Wiring.h"

#include <optional>

namespace tools {

/** Prints the name of the panel that the ID lines show, if quiet without the library's log on standard output. The
 * panel of the wiring is ignored. */
void printDetectedPanel(Wiring wiring, bool quiet);

/**
 * Switches one LED and uses no other line.
 * @throws UsageError when there is no such LED
 * @throws std::exception when its pin fails
 */
void switchLed(const Wiring& wiring, unsigned led, bool on);

/** Switches every LED and uses no other line. @throws std::exception when a pin fails */
void switchAllLeds(const Wiring& wiring, bool on);

/**
 * Shows a page, which stays, at a contrast in percent. Keys and LEDs are not used.
 * @throws UsageError, std::exception when there is no display or it fails
 */
void printPage(Wiring wiring, const frontpanelhw::drawing::DisplayBuffer& page, std::optional<unsigned> contrast);

/** Lights everything for a time or until interrupted. @throws std::exception also when the display failed */
void runLampTest(const Wiring& wiring, unsigned seconds, Interrupt& interrupt);

} // namespace tools
