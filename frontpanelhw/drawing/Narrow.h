#pragma once

#include <string>

namespace frontpanelhw::drawing {

/** @return the low 8 bits of the code unit, which are the display's character code; nothing is transcoded */
inline unsigned char narrow(char16_t codeUnit)
{
    return static_cast<unsigned char>(codeUnit & 0xFFU);
}

/** @return one byte for each code unit, as narrow gives it */
inline std::string narrow(const std::u16string& text)
{
    std::string bytes;
    bytes.reserve(text.size());
    for (const char16_t codeUnit : text) {
        bytes.push_back(static_cast<char>(narrow(codeUnit)));
    }
    return bytes;
}

} // namespace frontpanelhw::drawing
