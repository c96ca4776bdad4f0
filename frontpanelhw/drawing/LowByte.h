#pragma once

#include <string>

namespace frontpanelhw::drawing {

/** @return the low 8 bits of the code unit, which are the display's character code */
inline unsigned char lowByte(char16_t codeUnit)
{
    return static_cast<unsigned char>(codeUnit);
}

/** @return the low byte of each code unit */
inline std::string lowBytes(const std::u16string& text)
{
    return {text.begin(), text.end()};
}

} // namespace frontpanelhw::drawing
