#include "frontpanelhw/drawing/DisplayLine.h"

#include "frontpanelhw/drawing/LowByte.h"

#include <algorithm>
#include <iostream>

namespace frontpanelhw::drawing {

DisplayLine::DisplayLine(unsigned charCount) : characters(charCount)
{
}

DisplayLine::DisplayLine(const std::u16string& text)
{
    setLine(text);
}

bool DisplayLine::setCharacter(unsigned index, const DisplayChar& c)
{
    if (index >= characters.size()) {
        return false;
    }
    characters[index] = c;
    return true;
}

DisplayChar DisplayLine::getCharacter(unsigned index) const
{
    return index < characters.size() ? characters[index] : DisplayChar();
}

void DisplayLine::addCharacter(const DisplayChar& c)
{
    characters.push_back(c);
}

bool DisplayLine::setInverted(unsigned from, unsigned to, bool inverted)
{
    if (from > to || to >= characters.size()) {
        return false;
    }
    for (unsigned i = from; i <= to; ++i) {
        characters[i].inverted = inverted;
    }
    return true;
}

bool DisplayLine::getInverted(unsigned index) const
{
    return getCharacter(index).inverted;
}

void DisplayLine::setLine(const std::u16string& text)
{
    characters.clear();
    characters.reserve(text.size());
    for (const char16_t codeUnit : text) {
        characters.push_back({codeUnit, false});
    }
}

bool DisplayLine::setLine(unsigned offset, const std::u16string& text)
{
    // Past the end this wraps around, and the first character written meets the range check below.
    const unsigned room = getCharCount() - offset;
    if (text.size() > room) {
        std::cerr << "ERROR: text '" << lowBytes(text) << "' is too long to write in line!\n";
        return false;
    }
    for (const char16_t codeUnit : text) {
        if (codeUnit != 0) {
            characters.at(offset).character = codeUnit;
        }
        ++offset;
    }
    return true;
}

std::u16string DisplayLine::getString() const
{
    std::u16string text;
    text.reserve(characters.size());
    for (const DisplayChar& cell : characters) {
        text.push_back(cell.character);
    }
    return text;
}

bool DisplayLine::operator==(const DisplayLine& other) const
{
    return std::equal(characters.begin(), characters.end(), other.characters.begin(), other.characters.end(),
                      [](const DisplayChar& a, const DisplayChar& b) {
                          return a.character == b.character && a.inverted == b.inverted;
                      });
}

std::ostream& operator<<(std::ostream& stream, const DisplayLine& line)
{
    std::string flags;
    flags.reserve(line.getCharCount());
    for (unsigned i = 0; i < line.getCharCount(); ++i) {
        flags.push_back(line.getInverted(i) ? 'i' : 'n');
    }
    stream.width(0);
    return stream << "'" << lowBytes(line.getString()) << "' - " << flags
                  << " - cnt: " << std::to_string(line.getCharCount());
}

} // namespace frontpanelhw::drawing
