#pragma once

#include "tools/Interrupt.h"
#include "tools/KeyEventQueue.h"
#include "tools/Wiring.h"

#include <functional>

namespace tools {

/** @return a key callback that prints each event on standard output and queues it */
std::function<void(unsigned, bool)> reportTo(KeyEventQueue& events);

/** Prints key events until interrupted or until standard output fails; leaves LEDs and display alone. */
void watchKeys(const Wiring& wiring, Interrupt& interrupt);

} // namespace tools
