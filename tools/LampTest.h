#pragma once

#include "tools/Interrupt.h"
#include "tools/Panel.h"
#include "tools/Wiring.h"

#include <chrono>

namespace tools {

/**
 * Lights every LED and fills the display, for a time or until interrupted. Then the LEDs go back to their states and
 * the display shows an empty page.
 * @return false when the display failed
 */
bool testLamps(Panel& panel, std::chrono::seconds duration, Interrupt& interrupt);

/** The lamp test as a command. @throws std::exception also when the display failed */
void runLampTest(const Wiring& wiring, std::chrono::seconds duration, Interrupt& interrupt);

} // namespace tools
