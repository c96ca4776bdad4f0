#pragma once

#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "tools/InvertRange.h"

#include <string>
#include <string_view>
#include <vector>

namespace tools {

/** What the user wants on the display: at most as many lines as it has, and cells to invert. */
struct PrintedPage {
    std::vector<std::u16string> lines;
    std::vector<InvertRange> inverted;

    frontpanelhw::drawing::DisplayBuffer toBuffer() const;
};

/** @return the line's UTF-16 code units @throws UsageError when the text is not UTF-8 or too long for the display */
std::u16string parseLine(std::string_view text);

} // namespace tools
