#include "panelsim/board/Utf8.h"

#include <algorithm>
#include <array>

namespace panelsim {

namespace {

constexpr std::size_t longestExcerpt = 60; ///< bytes

/** How characters begin; all bytes after the second are 0x80 to 0xBF. */
struct EncodedForm {
    unsigned char firstLead;
    unsigned char lastLead;
    std::size_t length;
    unsigned char lowestSecond;
    unsigned char highestSecond;
};

constexpr std::array<EncodedForm, 9> forms = {{
    {0x00, 0x7F, 1, 0x00, 0xFF},
    {0xC2, 0xDF, 2, 0x80, 0xBF},
    {0xE0, 0xE0, 3, 0xA0, 0xBF},
    {0xE1, 0xEC, 3, 0x80, 0xBF},
    {0xED, 0xED, 3, 0x80, 0x9F},
    {0xEE, 0xEF, 3, 0x80, 0xBF},
    {0xF0, 0xF0, 4, 0x90, 0xBF},
    {0xF1, 0xF3, 4, 0x80, 0xBF},
    {0xF4, 0xF4, 4, 0x80, 0x8F},
}};

bool isBetween(char character, unsigned char lowest, unsigned char highest)
{
    const auto byte = static_cast<unsigned char>(character);
    return byte >= lowest && byte <= highest;
}

/** @return bytes of the first character, 0 when it is none */
std::size_t firstLength(std::string_view bytes)
{
    const auto* const form = std::find_if(forms.begin(), forms.end(), [&](const EncodedForm& f) {
        return isBetween(bytes.front(), f.firstLead, f.lastLead);
    });
    if (form == forms.end() || form->length > bytes.size()) {
        return 0;
    }
    if (form->length > 1 && !isBetween(bytes[1], form->lowestSecond, form->highestSecond)) {
        return 0;
    }
    const std::string_view others = bytes.substr(1, form->length - 1);
    const bool allFollow = std::all_of(others.begin(), others.end(), [](char c) { return isBetween(c, 0x80, 0xBF); });
    return allFollow ? form->length : 0;
}

bool isControl(std::string_view character)
{
    const bool isC1 = character.size() == 2 && character[0] == '\xC2' && isBetween(character[1], 0x80, 0x9F);
    return isC1 || isBetween(character[0], 0x00, 0x1F) || character[0] == '\x7F';
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
