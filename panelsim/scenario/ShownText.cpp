#include "panelsim/scenario/ShownText.h"

#include "panelsim/board/LcdChip.h"
#include "panelsim/picture/Glyph.h"

namespace panelsim {

std::string shownLine(const PanelView& view, unsigned line)
{
    if (!view.lcd || !view.lcd->displayOn) {
        return std::string(LcdChip::columns, ' ');
    }
    std::string text;
    for (const LcdCell& cell : view.lcd->lines.at(line)) {
        text += glyph(cell.code);
    }
    return text;
}

std::string withoutTrailingBlanks(const std::string& text)
{
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

} // namespace panelsim
