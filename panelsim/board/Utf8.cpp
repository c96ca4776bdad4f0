#include "panelsim/board/Utf8.h"

#include <algorithm>
#include <cstdint>

namespace panelsim {

namespace {

constexpr std::size_t longestExcerpt = 60; ///< bytes

/** @return bytes of the first character, 0 when it is none */
std::size_t firstLength(std::string_view bytes)
{
    const auto lead = static_cast<unsigned char>(bytes.front());
    const std::size_t length = lead < 0x80 ? 1 : lead < 0xC0 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    constexpr std::uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    std::uint32_t code = length == 1 ? lead : lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const unsigned byte = i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U;
        if ((byte & 0xC0U) != 0x80U) {
            return 0;
        }
        code = code << 6U | (byte & 0x3FU);
    }
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    return lead >= 0xF8 || code < least[length] || code > 0x10FFFF || isSurrogate ? 0 : length;
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
    for (std::size_t length = 1; valid < bytes.size() && length != 0; valid += length) {
        length = firstLength(bytes.substr(valid));
    }
    return valid;
}

std::string printable(std::string_view bytes)
{
    std::string text;
    while (!bytes.empty()) {
        const std::size_t length = firstLength(bytes);
        const std::string_view character = bytes.substr(0, std::max<std::size_t>(length, 1));
        text += length == 0 ? "\uFFFD" : isControl(character) ? "\u00B7" : character;
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
