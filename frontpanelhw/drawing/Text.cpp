#include "frontpanelhw/drawing/Text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>

namespace frontpanelhw::drawing {

namespace {

/** A run of characters, by first and last. */
struct Characters {
    std::uint32_t first;
    std::uint32_t last;

    bool contain(std::uint32_t character) const { return first <= character && character <= last; }
};

/** The display's characters: Latin-1 without control codes, for want of a data sheet. */
constexpr Characters displayed[] = {{0x20, 0x7E}, {0xA0, 0xFF}};

/** The characters whose encoding takes 1 to 4 bytes; of those of 3 bytes, surrogates are none. */
constexpr Characters encoded[] = {{0, 0x7F}, {0x80, 0x7FF}, {0x800, 0xFFFF}, {0x10000, 0x10FFFF}};
constexpr Characters surrogates{0xD800, 0xDFFF};

/** Takes a character, or a byte that begins none, off the text. @return its number, or 0, which is not displayed */
std::uint32_t takeCharacter(std::string_view& text)
{
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t length = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    const std::string_view bytes = text.substr(0, length);
    // A byte that begins no character, or too few bytes, give a number that does not have this length.
    std::uint32_t character = length == 1 ? lead : lead & (0xFFU >> length);
    bool wellFormed = true;
    for (const char byte : bytes.substr(1)) {
        wellFormed &= (static_cast<unsigned char>(byte) & 0xC0U) == 0x80;
        character = character << 6 | (static_cast<unsigned char>(byte) & 0x3FU);
    }
    wellFormed = wellFormed && encoded[length - 1].contain(character) && !surrogates.contain(character);
    text.remove_prefix(wellFormed ? length : 1);
    return wellFormed ? character : 0;
}

} // namespace

std::u16string fromUtf8(std::string_view text, char16_t substitute)
{
    std::u16string codeUnits;
    while (!text.empty()) {
        const std::uint32_t character = takeCharacter(text);
        const bool isDisplayed = std::any_of(std::begin(displayed), std::end(displayed),
                                             [character](const Characters& run) { return run.contain(character); });
        codeUnits.push_back(isDisplayed ? static_cast<char16_t>(character) : substitute);
    }
    return codeUnits;
}

std::u16string aligned(const std::u16string& text, unsigned width, Align align)
{
    std::u16string line = text.substr(0, width);
    const std::size_t room = width - line.size();
    const std::size_t before = align == Align::Left ? 0 : align == Align::Right ? room : room / 2;
    line.insert(0, before, u' ');
    line.resize(width, u' ');
    return line;
}

} // namespace frontpanelhw::drawing
