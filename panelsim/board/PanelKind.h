#pragma once

#include <array>

namespace panelsim {

/** A kind of front panel that is made. */
struct PanelKind {
    const char* name;
    unsigned id; ///< level of the four ID lines, bit 0 first
    unsigned keyCount;
    unsigned ledCount;
    bool hasLcd;
};

/** All kinds; the first one is simulated unless another is wanted. */
inline constexpr std::array panelKinds = {
    PanelKind{"indoor", 15, 3, 8, true},
    PanelKind{"outdoor", 5, 2, 8, false},
};

} // namespace panelsim
