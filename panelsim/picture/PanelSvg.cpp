#include "panelsim/picture/PanelSvg.h"

#include "panelsim/board/LcdChip.h"
#include "panelsim/picture/PanelText.h"

#include <algorithm>
#include <cstddef>
#include <sstream>
#include <vector>

namespace panelsim {

namespace {

using Units = std::size_t; ///< lengths in the drawing

constexpr Units margin = 44; ///< between the panel's edge and its parts
constexpr Units gap = 26;    ///< between its parts
constexpr Units rowGap = 14; ///< between rows of LEDs or keys
constexpr Units bodyGap = 8; ///< between the panel and its keys
constexpr Units bezel = 16;
constexpr Units glassMargin = 14;
constexpr Units cellWidth = 22;
constexpr Units cellHeight = 38;
constexpr Units glassWidth = LcdChip::columns * cellWidth + 2 * glassMargin;
constexpr Units glassHeight = LcdChip::rows * cellHeight + 2 * glassMargin;
constexpr Units lcdHeight = bezel + glassHeight + 34;
constexpr Units partsWidth = glassWidth + 2 * bezel; ///< also without a display
constexpr Units outerWidth = partsWidth + 2 * margin;
constexpr Units textSize = 18;
constexpr unsigned normalContrast = 15;

constexpr const char* printColour = "#e4e8ec";
constexpr const char* faintPrintColour = "#a9b2bc";
constexpr const char* keyPrintColour = "#15181c";
constexpr const char* ink = R"( fill="#16210d" fill-opacity=")"; // and the opacity

constexpr const char* screw = R"(<circle r="8" fill="#9aa4ae" stroke="#15181c" stroke-width="2"/>)"
                              R"(<path d="M-6 0h12" stroke="#15181c" stroke-width="2"/>)";
// LEDs and keys lie below the middle of their upper edge.
constexpr const char* darkLed = R"(<circle cy="40" r="13" fill="#1c2a20" stroke="#6d7a72" stroke-width="2"/>)";
constexpr const char* litLed = // in the colour that is set
    R"(<circle cy="40" r="19" fill-opacity="0.25"/>)"
    R"(<circle cy="40" r="13" stroke="#ffffff" stroke-opacity="0.75" stroke-width="2"/>)"
    R"(<circle cy="40" r="5" fill="#ffffff" fill-opacity="0.9"/>)";
constexpr const char* keyHole = R"(<rect x="-45" y="6" width="90" height="68" rx="11" fill="#15181c"/>)";
constexpr const char* keyCap =
    R"(<rect x="-44" width="88" height="66" rx="9" stroke-width="2")"; // and place and colours
constexpr const char* releasedKey = R"( y="1" fill="#d3d9df" stroke="#f4f6f8"/>)";
constexpr const char* pressedKey = R"( y="6" fill="#aab4be" stroke="#ffffff"/>)";

template <typename... Pieces>
std::string join(const Pieces&... pieces)
{
    std::ostringstream text;
    (text << ... << pieces);
    return text.str();
}

std::string group(Units x, Units y, const std::string& content)
{
    return join("<g transform=\"translate(", x, ' ', y, ")\">\n", content, "</g>\n");
}

std::string escaped(const std::string& text)
{
    std::string result;
    for (const char c : text) {
        result += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
    }
    return result;
}

/** @return size in which a text is at most so wide, of a font whose characters are 3/5 as wide as it is high */
Units fittingSize(const std::string& text, Units room)
{
    const auto characters =
        std::count_if(text.begin(), text.end(), [](unsigned char c) { return (c & 0xC0U) != 0x80; });
    return std::clamp<Units>(room * 5 / 3 / static_cast<Units>(std::max<std::ptrdiff_t>(characters, 1)), 1, textSize);
}

/** @param room width for the text: a longer one goes into two lines and becomes smaller */
std::string caption(Units y, const char* colour, const std::string& text, Units room, const char* more = "")
{
    const auto line = [&](Units lineY, const std::string& part, Units size) {
        return join("<text y=\"", lineY, "\" font-size=\"", size, "\" fill=\"", colour, '"', more, '>', escaped(part),
                    "</text>\n");
    };
    const Units size = fittingSize(text, room);
    const std::size_t blank = size < textSize ? text.find(' ', text.size() / 3) : std::string::npos;
    if (blank == std::string::npos) {
        return line(y, text, size);
    }
    const std::string first = text.substr(0, blank);
    const std::string second = text.substr(blank + 1);
    const Units smaller = std::min({fittingSize(first, room), fittingSize(second, room), Units{12}});
    return line(y - 8, first, smaller) + line(y + 4, second, smaller);
}

/** @param glass its colour @param contrast opacity of the dots that are set */
std::string drawCells(const std::vector<LcdCell>& line, Units y, const char* glass, double contrast)
{
    std::string inverted;
    std::string text;
    std::string centres;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const std::string character = escaped(glyph(line[i].code));
        inverted += line[i].inverted ? join('M', i * cellWidth, ' ', y, "h22v38h-22z") : "";
        text += line[i].inverted ? join(R"(<tspan fill=")", glass, R"(" fill-opacity="1">)", character, "</tspan>")
                                 : character;
        centres += join(i * cellWidth + cellWidth / 2, ' ');
    }
    // A place for each glyph: cells align in any font.
    return join("<path d=\"", inverted, '"', ink, contrast, R"(" shape-rendering="crispEdges"/>)",
                R"(<text xml:space="preserve" x=")", centres, "\" y=\"", y + 30, R"(" font-size="32")", ink, contrast,
                "\">", text, "</text>\n");
}

std::string drawLcd(const LcdView& lcd)
{
    // Ink is full from the normal contrast on; above it, the dots that are not set darken too.
    const unsigned contrast = lcd.contrast.value_or(normalContrast);
    const double setDots = std::min(10 + 6 * contrast, 100U) / 100.0;
    const double otherDots = (4 + 2 * (std::max(contrast, normalContrast) - normalContrast)) / 100.0;
    const char* const glass = lcd.backlight ? "#bfe04a" : "#7f8a78";
    std::string emptyCells;
    std::string cells;
    for (std::size_t row = 0; lcd.displayOn && row < lcd.lines.size(); ++row) {
        for (std::size_t column = 0; column < lcd.lines[row].size(); ++column) {
            emptyCells += join('M', column * cellWidth + 1, ' ', row * cellHeight + 1, "h20v36h-20z");
        }
        cells += drawCells(lcd.lines[row], row * cellHeight, glass, setDots);
    }
    return join(
        "<rect width=\"", partsWidth, "\" height=\"", lcdHeight,
        R"(" rx="12" fill="#15181c" stroke="#4b545e" stroke-width="2"/>)", "\n<rect x=\"", bezel, "\" y=\"", bezel,
        "\" width=\"", glassWidth, "\" height=\"", glassHeight, R"(" rx="5" fill=")", glass,
        R"(" stroke="#000000" stroke-width="2"/>)", '\n',
        group(bezel + glassMargin, bezel + glassMargin,
              join("<path d=\"", emptyCells, '"', ink, otherDots, "\"/>\n", cells)),
        group(partsWidth / 2, bezel + glassHeight + 23, caption(0, faintPrintColour, describe(lcd), partsWidth)));
}

std::string drawLed(const BoardConfig& config, unsigned led, bool lit, Units room)
{
    const std::string name = caption(14, printColour, ledName(config, led), room);
    if (!lit) {
        return name + darkLed + caption(76, faintPrintColour, "off", room);
    }
    const LedColour& colour = ledColour(config, led);
    // In words too, for who does not see the colour.
    return join(name, "<g fill=\"", colour.lamp, "\">", litLed, "</g>",
                caption(76, printColour, config.ledColours.empty() ? "on" : colour.name, room));
}

std::string drawKey(const BoardConfig& config, unsigned key, bool pressed)
{
    const std::string name = (config.keyNames.empty() ? "Key " : "") + keyName(config, key);
    return join(keyHole, keyCap, pressed ? pressedKey : releasedKey, '\n',
                caption(pressed ? 45 : 40, keyPrintColour, name, 80, R"( font-weight="600")"),
                pressed ? caption(65, keyPrintColour, "pressed", 55) : "");
}

/** Some parts of the panel, drawn from their own top left corner on. */
struct Rows {
    Units height = 0;
    std::string svg = {};
};

/** Lays things of one size out in rows, a single row centred; each is drawn around the middle of its place. */
template <typename Draw>
Rows drawRows(std::size_t count, Units pitch, Units rowHeight, Draw drawOne)
{
    const std::size_t perRow = partsWidth / pitch;
    const Units left = (partsWidth - std::min(count, perRow) * pitch + pitch) / 2;
    Rows rows;
    for (std::size_t i = 0; i < count; ++i) {
        const Units top = i / perRow * (rowHeight + rowGap);
        rows.svg += group(left + i % perRow * pitch, top, drawOne(static_cast<unsigned>(i)));
        rows.height = top + rowHeight;
    }
    return rows;
}

std::string drawBody(Units top, Units height)
{
    const auto outline = [&](Units inset, Units radius, const char* look) {
        return join("<rect x=\"", inset, "\" y=\"", top + inset, "\" width=\"", outerWidth - 2 * inset, "\" height=\"",
                    height - 2 * inset, "\" rx=\"", radius, '"', look, "/>\n");
    };
    return outline(2, 18, R"( fill="#2f353c" stroke="#15181c" stroke-width="3")") +
           outline(6, 14, R"( fill="none" stroke="#4b545e" stroke-width="2")");
}

std::string inWords(const std::vector<LcdCell>& line)
{
    const auto isInverted = [&](std::size_t i) { return i < line.size() && line[i].inverted; };
    std::string glyphs;
    std::string inverted;
    for (std::size_t i = 0; i < line.size(); ++i) {
        glyphs += glyph(line[i].code);
        inverted += isInverted(i) && !isInverted(i - 1) ? join(inverted.empty() ? "" : ", ", i + 1, " to ") : "";
        inverted += isInverted(i) && !isInverted(i + 1) ? std::to_string(i + 1) : "";
    }
    glyphs.erase(glyphs.find_last_not_of(' ') + 1);
    return (glyphs.empty() ? "blank" : glyphs) + (inverted.empty() ? "" : " (inverted: " + inverted + ")");
}

/** A line for each thing that is seen. */
std::string inWords(const BoardConfig& config, const PanelView& view, SvgExtent extent)
{
    std::string text = view.lcd ? describe(*view.lcd) : "This panel has no display";
    for (std::size_t row = 0; view.lcd && view.lcd->displayOn && row < view.lcd->lines.size(); ++row) {
        text += join("\nLine ", row + 1, ": ", inWords(view.lcd->lines[row]));
    }
    const auto list = [&](const char* heading, const std::vector<bool>& flags, const auto& nameOf) {
        std::string names;
        for (unsigned i = 0; i < flags.size(); ++i) {
            names += flags[i] ? (names.empty() ? "" : ", ") + nameOf(config, i) : "";
        }
        text += join('\n', heading, names.empty() ? "none" : names);
    };
    list("Lit LEDs: ", view.leds, ledName);
    if (extent == SvgExtent::Panel) {
        list("Pressed keys: ", view.keys, keyName);
    }
    return text;
}

} // namespace

std::string drawPanelSvg(const BoardConfig& config, const PanelView& view, SvgExtent extent)
{
    const Units pitch = partsWidth / (view.leds.size() <= 32 ? 8 : 12);
    const Rows leds = drawRows(view.leds.size(), pitch, 80,
                               [&](unsigned led) { return drawLed(config, led, view.leds[led], pitch - 6); });
    const Units ledTop = margin + (view.lcd ? lcdHeight : 0) + (view.lcd && leds.height != 0 ? gap : 0);
    Units height = ledTop + leds.height + margin;
    std::string drawn = drawBody(0, height);
    for (const Units y : {Units{22}, height - 22}) {
        drawn += group(22, y, screw) + group(outerWidth - 22, y, screw);
    }
    drawn += group(margin, margin, view.lcd ? drawLcd(*view.lcd) : "") + group(margin, ledTop, leds.svg);
    if (extent == SvgExtent::Panel && !view.keys.empty()) {
        const Rows keys =
            drawRows(view.keys.size(), 104, 75, [&](unsigned key) { return drawKey(config, key, view.keys[key]); });
        const Units top = height + bodyGap;
        height = top + keys.height + 2 * bezel;
        drawn += drawBody(top, height - top) +
                 join("<g font-family=\"system-ui, Segoe UI, Roboto, Helvetica Neue, DejaVu Sans, sans-serif\">\n",
                      group(margin, top + bezel, keys.svg), "</g>\n");
    }
    return join(R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 )", outerWidth, ' ', height, "\" width=\"",
                outerWidth, "\" height=\"", height,
                "\" role=\"img\" font-family=\"DejaVu Sans Mono, Liberation Mono, Menlo, Consolas, monospace\" "
                "text-anchor=\"middle\">\n<title>Front panel</title>\n<desc>",
                escaped(inWords(config, view, extent)), "</desc>\n", drawn, "</svg>\n");
}

} // namespace panelsim
