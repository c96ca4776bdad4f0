#include "tools/PrintedPage.h"

#include "tools/DisplaySize.h"
#include "tools/UsageError.h"
#include "tools/Utf8.h"

namespace tools {

frontpanelhw::drawing::DisplayBuffer PrintedPage::toBuffer() const
{
    frontpanelhw::drawing::DisplayBuffer buffer(DisplaySize::chars, DisplaySize::lines);
    unsigned index = 0;
    for (const auto& line : lines) {
        buffer.setLineContent(index++, line);
    }
    for (const auto& range : inverted) {
        buffer.setInverted(range.line, true, range.from, range.to);
    }
    return buffer;
}

std::u16string parseLine(std::string_view text)
{
    const auto line = decodeUtf8(text);
    if (!line) {
        throw UsageError("the text is not valid UTF-8");
    }
    if (line->size() > DisplaySize::chars) {
        throw UsageError("the text has " + std::to_string(line->size()) + " characters, a line of the display " +
                         std::to_string(DisplaySize::chars));
    }
    return *line;
}

} // namespace tools
