#pragma once

#include <string>

namespace panelsim {

/** @return what a character code of the LCD is shown as, in UTF-8: Latin-1, and a middle dot for control codes */
std::string glyph(unsigned char code);

} // namespace panelsim
