#pragma once

#include "panelsim/board/BoardConfig.h"
#include "tests/faults/FaultyPins.h"

#include <cstdint>
#include <string>
#include <vector>

/** An operation on the LCD's chip or backlight, as its pins show it. */
struct BusAccess {
    std::uint64_t first; ///< number of its first pin operation
    std::uint64_t last;
    std::string failureText;   ///< what is said of it when it fails, up to the reason
    bool isCharacter = false;  ///< whether it writes a character
    bool isLikeOthers = false; ///< a character within a run of them; the run's first two and last stand for it
};

/** @return the accesses that the pin operations of a run without failures add up to */
std::vector<BusAccess> decodeBus(const std::vector<PinCall>& calls, panelsim::ChipVariant chip, unsigned lcdGpioBase,
                                 unsigned backlightGpio);
