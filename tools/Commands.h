#pragma once

#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "sysfs/GpioChips.h"
#include "tools/Interrupt.h"
#include "tools/Wiring.h"

#include <optional>
#include <string>
#include <vector>

namespace tools {

/** Prints the name of the panel that the ID lines show. The panel of the wiring is ignored. */
void printDetectedPanel(Wiring wiring);

/** @return the chips as lines of a file that gives them the numbers they have; comments say what else is known */
std::string describeChips(const std::vector<sysfs::GpioChip>& chips);

/**
 * Switches one LED or, when none is named, all, and uses no other line.
 * @throws UsageError when there is no such LED
 * @throws std::exception when a pin fails
 */
void switchLeds(const Wiring& wiring, std::optional<unsigned> led, bool on);

/**
 * Shows a page, which stays, at a contrast in percent. Keys and LEDs are not used.
 * @throws UsageError, std::exception when there is no display or it fails
 */
void printPage(Wiring wiring, const frontpanelhw::drawing::DisplayBuffer& page, std::optional<unsigned> contrast);

/** Lights everything for a time or until interrupted. @throws std::exception also when the display failed */
void runLampTest(const Wiring& wiring, unsigned seconds, Interrupt& interrupt);

} // namespace tools
