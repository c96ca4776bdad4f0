#include "panelsim/board/Utf8.h"

#include <algorithm>

namespace panelsim {

namespace {

constexpr std::size_t longestExcerpt = 60; ///< bytes

/** @return bytes of the first character, 0 when it is none */
std::size_t firstLength(std::string_view bytes)
{
    const auto byteAt = [&](std::size_t i) { return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U; };
    const unsigned lead = byteAt(0);
    const std::size_t length = lead < 0x80   ? 1
                               : lead < 0xC2 ? 0
                               : lead < 0xE0 ? 2
                               : lead < 0xF0 ? 3
                               : lead < 0xF5 ? 4
                                             : 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byteAt(i) & 0xC0U) != 0x80U) {
            return 0;
        }
    }
    const unsigned second = byteAt(1);
    const bool isOverlong = (lead == 0xE0 && second < 0xA0) || (lead == 0xF0 && second < 0x90);
    const bool isNoCodePoint = (lead == 0xED && second > 0x9F) || (lead == 0xF4 && second > 0x8F);
    return isOverlong || isNoCodePoint ? 0 : length;
}

bool isControl(std::string_view character)
{
    const auto byte = static_cast<unsigned char>(character[0]);
    return byte < 0x20 || byte == 0x7F ||
           (byte == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0); // and the codes from 0x80 to 0x9F
}

} // namespace

std::size_t validUtf8(std::string_view bytes)
{
    std::size_t valid = 0;
    while (valid < bytes.size()) {
        const std::size_t length = firstLength(bytes.substr(valid));
        if (length == 0) {
            break;
        }
        valid += length;
    }
    return valid;
}

std::string printable(std::string_view bytes)
{
    std::string text;
    while (!bytes.empty()) {
        const std::size_t length = firstLength(bytes);
        const std::string_view character = bytes.substr(0, std::max<std::size_t>(length, 1));
        if (length == 0) {
            text += "\uFFFD";
        } else {
            text += isControl(character) ? "\u00B7" : character;
        }
        bytes.remove_prefix(character.size());
    }
    return text;
}

std::string inQuotes(std::string_view bytes)
{
    return "\"" + printable(bytes) + "\"";
}

std::string excerpt(std::string_view bytes)
{
    if (bytes.size() <= longestExcerpt) {
        return inQuotes(bytes);
    }
    const std::string_view start = bytes.substr(0, longestExcerpt);
    return inQuotes(start.substr(0, validUtf8(start))) + "...";
}

} // namespace panelsim
