#pragma once

#include "frontpanelhw/handler/KeyEventQueue.h"
#include "tools/Interrupt.h"
#include "tools/Wiring.h"

#include <functional>

namespace tools {

/** @return a key callback that prints each event on standard output, and ends the command when that fails, and then
 * passes the event to the queue, which must outlive it, for the main thread */
std::function<void(unsigned, bool)> printAndPass(const frontpanelhw::handler::KeyEventQueue& queue,
                                                 Interrupt& interrupt);

/** Prints key events until interrupted or until standard output fails. LEDs and display are not used. */
void watchKeys(Wiring wiring, Interrupt& interrupt);

} // namespace tools
