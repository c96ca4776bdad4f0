#include "panelsim/picture/Glyph.h"

namespace panelsim {

std::string glyph(unsigned char code)
{
    const bool control = code < 0x20 || (code >= 0x7F && code < 0xA0);
    if (control) {
        return "\u00B7";
    }
    if (code < 0x80) {
        return std::string(1, static_cast<char>(code));
    }
    return {static_cast<char>(0xC0 | code >> 6), static_cast<char>(0x80 | (code & 0x3F))};
}

} // namespace panelsim
