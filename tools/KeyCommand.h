#pragma once

#include "frontpanelhw/fp/IFp.h"
#include "tools/Interrupt.h"
#include "tools/KeyEventQueue.h"
#include "tools/Wiring.h"

namespace tools {

/** Connects the panel's key callback: each event is printed on standard output and queued. */
void reportKeys(frontpanelhw::fp::IFp& panel, KeyEventQueue& events);

/** Prints key events until interrupted or until standard output fails; leaves LEDs and display alone. */
void watchKeys(const Wiring& wiring, Interrupt& interrupt);

} // namespace tools
