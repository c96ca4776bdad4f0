#pragma once

#include "panelsim/board/BoardConfig.h"
#include "panelsim/board/PanelView.h"

#include <string>

namespace panelsim {

/** How a panel is drawn as text. */
enum class TextStyle {
    Plain,   ///< characters only; a row of ^ under a line marks its inverted cells
    Terminal ///< inverted cells in reverse video, lit LEDs in their colour
};

/**
 * Draws a panel as UTF-8 text, each row ended by a newline: the LCD in a frame, then LEDs as lit or dark dots and the
 * keys, a pressed one in brackets. LEDs have their names and plain text the colours of those that are lit, if they were
 * configured. The same view always gives the same text. Character codes are shown as Latin-1, control codes as a middle
 * dot.
 */
std::string drawPanel(const BoardConfig& config, const PanelView& view, TextStyle style);

/** @return what a character code of the LCD is shown as, in UTF-8: Latin-1, and a middle dot for control codes */
std::string glyph(unsigned char code);

/** @return "display on, backlight off, contrast 15/31"; contrast only if the LCD has a register for it */
std::string describe(const LcdView& lcd);

} // namespace panelsim
