#pragma once

#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/drawing/Text.h"

#include <string>

namespace tools {

/** The display's size, known before a panel is constructed: a text that does not fit is refused before a GPIO is used.
 */
constexpr unsigned displayLines = 3;
constexpr unsigned displayChars = 25;

/** @return a page of spaces, all inverted or none */
frontpanelhw::drawing::DisplayBuffer blankPage(bool inverted = false);

/** Writes a line of a page. @throws UsageError for UTF-8 text that is not valid, too long or not on the display */
void writeLine(frontpanelhw::drawing::DisplayBuffer& page, unsigned line, const std::string& text,
               frontpanelhw::drawing::Align align);

/** Inverts LINE, LINE:COLUMN or LINE:FROM-TO of a page. @throws UsageError for any other text */
void invertCells(frontpanelhw::drawing::DisplayBuffer& page, const std::string& cells);

} // namespace tools
