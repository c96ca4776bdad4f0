#pragma once

namespace tools {

/** The indoor panel's display, known without a panel at hand: what does not fit is refused before any GPIO is used. */
struct DisplaySize {
    static constexpr unsigned lines = 3;
    static constexpr unsigned chars = 25;
};

} // namespace tools
