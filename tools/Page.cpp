#include "tools/Page.h"

#include "tools/UsageError.h"

#include <sstream>

namespace tools {

using frontpanelhw::drawing::DisplayBuffer;
using frontpanelhw::drawing::fromUtf8;

DisplayBuffer blankPage(bool inverted)
{
    DisplayBuffer page(displayChars, displayLines);
    for (unsigned line = 0; line < displayLines; ++line) {
        page.setInverted(line, inverted, 0, displayChars - 1);
    }
    return page;
}

void writeLine(DisplayBuffer& page, unsigned line, const std::string& text, frontpanelhw::drawing::Align align)
{
    constexpr char16_t missing = u'\0'; // the display has no such character
    const auto refuse = [line](const std::string& reason) {
        throw UsageError("LINE" + std::to_string(line) + ": " + reason);
    };
    const auto beginsCharacter = [](unsigned char byte) { return (byte & 0xC0U) != 0x80; };
    for (std::size_t from = 0, to = 1; from < text.size(); from = to++) {
        while (to < text.size() && !beginsCharacter(static_cast<unsigned char>(text[to]))) {
            ++to;
        }
        const std::string character = text.substr(from, to - from);
        const std::u16string codeUnits = fromUtf8(character, missing);
        if (codeUnits.size() > 1 || (character.size() == 1 && static_cast<unsigned char>(character[0]) >= 0x80)) {
            refuse("the text is not valid UTF-8");
        }
        if (codeUnits[0] == missing) {
            refuse("the display has no '" + character + "'");
        }
    }
    const std::u16string codeUnits = fromUtf8(text);
    if (codeUnits.size() > displayChars) {
        refuse("the text has " + std::to_string(codeUnits.size()) + " characters, a line of the display " +
               std::to_string(displayChars));
    }
    page.setLineContent(line, aligned(codeUnits, displayChars, align));
}

void invertCells(DisplayBuffer& page, const std::string& cells)
{
    std::istringstream parts(cells);
    unsigned line = 0;
    unsigned from = 0;
    unsigned to = displayChars - 1;
    char colon = ':';
    char dash = '-';
    parts >> line;
    if (!parts.eof()) {
        parts >> colon >> from;
        to = from;
    }
    if (!parts.eof()) {
        parts >> dash >> to;
    }
    if (!parts || !parts.eof() || colon != ':' || dash != '-' || !page.setInverted(line, true, from, to)) {
        throw UsageError("--invert: '" + cells + "' is none of LINE, LINE:COLUMN and LINE:FROM-TO, with lines 0 to " +
                         std::to_string(displayLines - 1) + " and columns 0 to " + std::to_string(displayChars - 1));
    }
}

} // namespace tools
