#pragma once

#include "tools/Interrupt.h"
#include "tools/Wiring.h"

#include <functional>

namespace tools {

/** @return a key callback that prints each event on standard output, passes it on and wakes the main thread */
std::function<void(unsigned, bool)> reportTo(Interrupt& interrupt, std::function<void(unsigned, bool)> next = nullptr);

/** Prints key events until interrupted or until standard output fails. LEDs and display are not used. */
void watchKeys(const Wiring& wiring, Interrupt& interrupt);

} // namespace tools
