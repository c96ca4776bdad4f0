#pragma once

#include "panelsim/board/PanelView.h"

#include <string>

namespace panelsim {

/**
 * @return a line of the display in UTF-8, blanks at its end included: character codes as Latin-1, control codes as a
 *         middle dot; blank when the display is off or there is none
 */
std::string shownLine(const PanelView& view, unsigned line);

/** @return the text without the blanks at its end */
std::string withoutTrailingBlanks(const std::string& text);

} // namespace panelsim
