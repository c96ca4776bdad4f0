#pragma once

#include "panelsim/board/BoardConfig.h"

#include <optional>
#include <vector>

namespace panelsim {

/** One character cell of the LCD. */
struct LcdCell {
    unsigned char code = ' '; ///< the chip's character code
    bool inverted = false;

    bool operator==(const LcdCell& other) const { return code == other.code && inverted == other.inverted; }
};

/** What the LCD shows. */
struct LcdView {
    ChipVariant chip = ChipVariant::Ra8806; ///< the LCD's controller
    bool identified = false;                ///< whether the chip was asked what it is since its last reset
    bool displayOn = false;
    bool backlight = false;
    std::optional<unsigned> contrast = {};        ///< 0 to 31; empty on a chip that has no contrast register
    std::vector<std::vector<LcdCell>> lines = {}; ///< the page that is shown, top line first
};

/** What a person in front of the panel sees. */
struct PanelView {
    std::vector<bool> leds = {};     ///< true = lit
    std::vector<bool> keys = {};     ///< true = pressed
    std::optional<LcdView> lcd = {}; ///< empty on a panel without one
};

} // namespace panelsim
