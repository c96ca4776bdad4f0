#include "panelsim/picture/PanelText.h"

#include "panelsim/board/Text.h"

#include <cstddef>

namespace panelsim {

namespace {

constexpr const char* reverseVideo = "\033[7m";
constexpr const char* normal = "\033[0m";

std::string drawCells(const std::vector<LcdCell>& line, TextStyle style)
{
    std::string row;
    bool reversed = false;
    for (const LcdCell& cell : line) {
        if (style == TextStyle::Terminal && cell.inverted != reversed) {
            row += cell.inverted ? reverseVideo : normal;
            reversed = cell.inverted;
        }
        row += glyph(cell.code);
    }
    return reversed ? row + normal : row;
}

std::string drawLcd(const LcdView& lcd, TextStyle style)
{
    const std::size_t width = lcd.lines.empty() ? 0 : lcd.lines.front().size();
    const auto framed = [](const std::string& cells) { return "\u2502 " + cells + " \u2502\n"; };
    std::string rule;
    for (std::size_t i = 0; i < width + 2; ++i) {
        rule += "\u2500";
    }
    std::string text = "\u250C" + rule + "\u2510\n";
    for (const auto& line : lcd.lines) {
        const auto shown = lcd.displayOn ? line : std::vector<LcdCell>(line.size());
        text += framed(drawCells(shown, style));
        std::string inversion;
        for (const LcdCell& cell : shown) {
            inversion += cell.inverted ? '^' : ' ';
        }
        if (style == TextStyle::Plain && inversion.find('^') != std::string::npos) {
            text += framed(inversion);
        }
    }
    return text + "\u2514" + rule + "\u2518\n" + describe(lcd) + "\n";
}

std::string drawLed(const BoardConfig& config, unsigned led, bool lit, TextStyle style)
{
    const LedColour& colour = ledColour(config, led);
    const bool isColoured = lit && style == TextStyle::Terminal;
    const bool saysColour = lit && style == TextStyle::Plain && !config.ledColours.empty();
    return (isColoured ? std::string(colour.escape) + "\u25CF" + normal
            : lit      ? "\u25CF"
                       : "\u25CB") +
           (config.ledNames.empty() ? "" : " " + ledName(config, led)) +
           (saysColour ? std::string(" (") + colour.name + ")" : "") + (config.ledNames.empty() ? "" : " ");
}

} // namespace

std::string glyph(unsigned char code)
{
    const auto last = static_cast<char>(code < 0x80 ? code : 0x80 | (code & 0x3F));
    return printable(code < 0x80 ? std::string{last} : std::string{static_cast<char>(0xC0 | code >> 6), last});
}

std::string describe(const LcdView& lcd)
{
    const std::string contrast = lcd.contrast ? ", contrast " + std::to_string(*lcd.contrast) + "/31" : "";
    return std::string("display ") + (lcd.displayOn ? "on" : "off") + ", backlight " + (lcd.backlight ? "on" : "off") +
           contrast;
}

std::string drawPanel(const BoardConfig& config, const PanelView& view, TextStyle style)
{
    std::string text = view.lcd ? drawLcd(*view.lcd, style) : std::string();
    text += "LEDs";
    for (unsigned i = 0; i < view.leds.size(); ++i) {
        text += " " + drawLed(config, i, view.leds[i], style);
    }
    text += "   keys";
    for (unsigned i = 0; i < view.keys.size(); ++i) {
        const std::string name = keyName(config, i);
        text += view.keys[i] ? " [" + name + "]" : "  " + name + " ";
    }
    while (text.back() == ' ') {
        text.pop_back();
    }
    return text + "\n";
}

} // namespace panelsim
