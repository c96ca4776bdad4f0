#pragma once

namespace panelsim {

/** A place in a text file. */
struct TextPlace {
    unsigned line = 1;   ///< from 1 on
    unsigned column = 1; ///< in characters, from 1 on
};

} // namespace panelsim
