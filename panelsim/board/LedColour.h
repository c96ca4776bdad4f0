#pragma once

#include <array>

namespace panelsim {

/** A colour that a LED lights in. */
struct LedColour {
    const char* name;
    const char* lamp;   ///< in pictures, as in CSS
    const char* escape; ///< sequence that switches a terminal to it
};

/** All of them; a LED has the first one unless another is configured. */
inline constexpr std::array ledColours = {
    LedColour{"green", "#5df06c", "\033[32m"},  LedColour{"red", "#ff5c4d", "\033[31m"},
    LedColour{"yellow", "#ffe14d", "\033[33m"}, LedColour{"orange", "#ffa033", "\033[33m"},
    LedColour{"blue", "#5aa9ff", "\033[34m"},   LedColour{"white", "#f4f6f8", "\033[37m"},
};

} // namespace panelsim
