#pragma once

#include <string_view>

namespace tools {

/** Cells of one display line, counted from 0, both ends included. */
struct InvertRange {
    unsigned line;
    unsigned from;
    unsigned to;
};

/**
 * Reads "LINE", which is the whole line, "LINE:COLUMN" or "LINE:FROM-TO".
 * @throws UsageError when the text is anything else, runs backwards or leaves the display
 */
InvertRange parseInvertRange(std::string_view text);

} // namespace tools
