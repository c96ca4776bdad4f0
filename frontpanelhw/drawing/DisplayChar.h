#pragma once

namespace frontpanelhw::drawing {

/** One character cell of a display. */
struct DisplayChar {
    char16_t character = u' '; ///< one UTF-16 code unit
    bool inverted = false;     ///< shown with inverted colours
};

} // namespace frontpanelhw::drawing
