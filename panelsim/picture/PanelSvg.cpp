#include "panelsim/picture/PanelSvg.h"

#include "panelsim/picture/Glyph.h"
#include "panelsim/picture/PanelText.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace panelsim {

namespace {

using Units = std::size_t; ///< lengths in the drawing

constexpr Units margin = 44; ///< between the panel's edge and its parts
constexpr Units gap = 26;    ///< between its parts
constexpr Units rowGap = 14; ///< between rows of LEDs or keys
constexpr Units bezel = 16;
constexpr Units glassMargin = 14;
constexpr Units captionHeight = 34;
constexpr Units cellWidth = 22;
constexpr Units cellHeight = 38;
constexpr Units smallestWidth = 610; ///< of the parts
constexpr Units textSize = 18;
constexpr unsigned normalContrast = 15;

constexpr const char* bodyColour = "#2f353c";
constexpr const char* edgeColour = "#4b545e";
constexpr const char* shadowColour = "#15181c";
constexpr const char* printColour = "#e4e8ec";
constexpr const char* faintPrintColour = "#a9b2bc";
constexpr const char* inkColour = "#16210d";

/** A part of the panel, drawn from its own top left corner on. */
struct Part {
    Units height = 0;
    std::string svg = {};
};

struct Box {
    Units x;
    Units y;
    Units width;
    Units height;
};

/** How the LCD's glass looks. */
struct Glass {
    const char* colour;
    unsigned ink;   ///< percent, of the dots that are set
    unsigned ghost; ///< percent, of the dots that are not
};

std::string attribute(const char* name, const std::string& value)
{
    return std::string(" ") + name + "=\"" + value + "\"";
}

std::string attribute(const char* name, Units value)
{
    return attribute(name, std::to_string(value));
}

std::string opacity(unsigned percent)
{
    const std::string digits = std::to_string(percent);
    return attribute("fill-opacity", percent >= 100 ? "1" : (percent < 10 ? "0.0" : "0.") + digits);
}

std::string rectangle(const Box& box, Units radius, const char* fill, const std::string& more = {})
{
    return "<rect" + attribute("x", box.x) + attribute("y", box.y) + attribute("width", box.width) +
           attribute("height", box.height) + attribute("rx", radius) + attribute("fill", fill) + more + "/>\n";
}

std::string outline(const char* stroke, Units width)
{
    return attribute("stroke", stroke) + attribute("stroke-width", width);
}

std::string circle(Units x, Units y, Units radius, const char* fill, const std::string& more = {})
{
    return "<circle" + attribute("cx", x) + attribute("cy", y) + attribute("r", radius) + attribute("fill", fill) +
           more + "/>\n";
}

std::string caption(Units x, Units y, const char* fill, const std::string& text)
{
    return "<text" + attribute("x", x) + attribute("y", y) + attribute("fill", fill) + ">" + text + "</text>\n";
}

std::string group(Units x, Units y, const std::string& content)
{
    return "<g" + attribute("transform", "translate(" + std::to_string(x) + " " + std::to_string(y) + ")") + ">\n" +
           content + "</g>\n";
}

std::string escapedGlyph(unsigned char code)
{
    switch (code) {
    case '&':
        return "&amp;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    default:
        return glyph(code);
    }
}

/** Ink is full from the normal contrast on; above it, the dots that are not set darken too. */
Glass glassOf(const LcdView& lcd)
{
    const unsigned contrast = lcd.contrast.value_or(normalContrast);
    const unsigned above = std::max(contrast, normalContrast) - normalContrast;
    return {lcd.backlight ? "#bfe04a" : "#7f8a78", std::min(10 + 6 * contrast, 100U), 4 + 2 * above};
}

std::string drawEmptyCells(std::size_t columns, std::size_t rows, const Glass& glass)
{
    const std::string outlineOfCell = "h" + std::to_string(cellWidth - 2) + "v" + std::to_string(cellHeight - 2) +
                                      "h-" + std::to_string(cellWidth - 2) + "z";
    std::string path;
    for (std::size_t row = 0; row < rows; ++row) {
        for (std::size_t column = 0; column < columns; ++column) {
            path += "M" + std::to_string(column * cellWidth + 1) + " " + std::to_string(row * cellHeight + 1) +
                    outlineOfCell;
        }
    }
    return "<path" + attribute("d", path) + attribute("fill", inkColour) + opacity(glass.ghost) + "/>\n";
}

std::string cellCentres(std::size_t count)
{
    std::string list;
    for (std::size_t i = 0; i < count; ++i) {
        list += (i == 0 ? "" : " ") + std::to_string(i * cellWidth + cellWidth / 2);
    }
    return list;
}

std::string drawCells(const std::vector<LcdCell>& line, Units y, const Glass& glass)
{
    const std::string ink = attribute("fill", inkColour) + opacity(glass.ink);
    std::string filled;
    std::string text;
    for (auto begin = line.begin(); begin != line.end();) {
        const bool inverted = begin->inverted;
        const auto end = std::find_if(begin, line.end(), [&](const LcdCell& c) { return c.inverted != inverted; });
        std::string glyphs;
        std::for_each(begin, end, [&](const LcdCell& cell) { glyphs += escapedGlyph(cell.code); });
        if (inverted) {
            const auto x = static_cast<Units>(begin - line.begin()) * cellWidth;
            filled += rectangle({x, y, static_cast<Units>(end - begin) * cellWidth, cellHeight}, 0, inkColour,
                                opacity(glass.ink) + attribute("shape-rendering", "crispEdges"));
            text += "<tspan" + attribute("fill", glass.colour) + opacity(100) + ">" + glyphs + "</tspan>";
        } else {
            text += glyphs;
        }
        begin = end;
    }
    // A place for each glyph: cells align whatever font there is.
    return filled + "<text" + attribute("xml:space", "preserve") + attribute("x", cellCentres(line.size())) +
           attribute("y", y + 30) + attribute("font-size", 32) + ink + ">" + text + "</text>\n";
}

std::string drawLines(const LcdView& lcd, const Glass& glass)
{
    std::string svg = drawEmptyCells(lcd.lines.empty() ? 0 : lcd.lines.front().size(), lcd.lines.size(), glass);
    for (std::size_t row = 0; row < lcd.lines.size(); ++row) {
        svg += drawCells(lcd.lines[row], row * cellHeight, glass);
    }
    return svg;
}

Units widthOfLcd(const LcdView& lcd)
{
    const std::size_t columns = lcd.lines.empty() ? 0 : lcd.lines.front().size();
    return columns * cellWidth + 2 * (glassMargin + bezel);
}

Part drawLcd(const LcdView& lcd, Units width)
{
    const Glass glass = glassOf(lcd);
    const Units glassHeight = lcd.lines.size() * cellHeight + 2 * glassMargin;
    const Units glassWidth = widthOfLcd(lcd) - 2 * bezel;
    const Units left = (width - glassWidth) / 2;
    const Units height = bezel + glassHeight + captionHeight;
    std::string svg =
        rectangle({left - bezel, 0, glassWidth + 2 * bezel, height}, 12, shadowColour, outline(edgeColour, 2));
    svg += rectangle({left, bezel, glassWidth, glassHeight}, 5, glass.colour, outline("#000000", 2));
    if (lcd.displayOn) {
        svg += group(left + glassMargin, bezel + glassMargin, drawLines(lcd, glass));
    }
    svg += caption(width / 2, bezel + glassHeight + 23, faintPrintColour, describe(lcd));
    return {height, svg};
}

/** Lays things of one size out in rows, a single row centred; each is drawn around the middle of its place. */
template <typename Draw>
Part drawRows(std::size_t count, std::size_t perRow, Units width, Units rowHeight, Draw draw)
{
    const Units pitch = width / perRow;
    const Units left = (width - std::min(count, perRow) * pitch) / 2;
    Part part;
    for (std::size_t i = 0; i < count; ++i) {
        const Units top = i / perRow * (rowHeight + rowGap);
        part.svg += group(left + i % perRow * pitch, top, draw(i, pitch / 2));
        part.height = top + rowHeight;
    }
    return part;
}

std::string drawLed(std::size_t number, bool lit, Units middle)
{
    const Units lampY = 40;
    const std::string name = caption(middle, 14, printColour, std::to_string(number));
    if (!lit) {
        return name + circle(middle, lampY, 13, "#1c2a20", outline("#6d7a72", 2)) +
               caption(middle, 76, faintPrintColour, "off");
    }
    return name + circle(middle, lampY, 19, "#6dff7c", opacity(25)) +
           circle(middle, lampY, 13, "#5df06c", outline("#d8ffdc", 2)) + circle(middle, lampY, 5, "#f0fff1") +
           caption(middle, 76, printColour, "on");
}

Part drawLeds(const std::vector<bool>& leds, Units width)
{
    const std::size_t perRow = leds.size() <= 32 ? 8 : 12;
    return drawRows(leds.size(), perRow, width, 80,
                    [&](std::size_t i, Units middle) { return drawLed(i, leds[i], middle); });
}

std::string drawKey(std::size_t number, bool pressed, Units middle)
{
    const Units capWidth = 72;
    const Units capHeight = 54;
    const Units travel = 6;
    const Units left = middle - capWidth / 2;
    const Units top = pressed ? travel : 0;
    std::string svg = rectangle({left - 3, travel - 3, capWidth + 6, capHeight + 6}, 12, shadowColour);
    svg += rectangle({left, top, capWidth, capHeight}, 9, pressed ? "#8d98a4" : "#d3d9df",
                     outline(pressed ? "#ffffff" : "#f4f6f8", 2));
    svg += caption(middle, top + 34, shadowColour, std::to_string(number));
    return pressed ? svg + caption(middle, 84, printColour, "pressed") : svg;
}

Part drawKeys(const std::vector<bool>& keys, Units width)
{
    return drawRows(keys.size(), 6, width, 88,
                    [&](std::size_t i, Units middle) { return drawKey(i, keys[i], middle); });
}

std::string drawScrew(Units x, Units y)
{
    return circle(x, y, 8, "#9aa4ae", outline(shadowColour, 2)) + rectangle({x - 6, y - 1, 12, 2}, 0, shadowColour);
}

std::string drawBody(Units width, Units height)
{
    const Units inset = 22;
    return rectangle({2, 2, width - 4, height - 4}, 18, bodyColour, outline(shadowColour, 3)) +
           rectangle({6, 6, width - 12, height - 12}, 14, "none", outline(edgeColour, 2)) + drawScrew(inset, inset) +
           drawScrew(width - inset, inset) + drawScrew(inset, height - inset) +
           drawScrew(width - inset, height - inset);
}

} // namespace

std::string drawPanelSvg(const PanelView& view, SvgExtent extent)
{
    const Units width = std::max(view.lcd ? widthOfLcd(*view.lcd) : 0, smallestWidth);
    std::vector<Part> parts;
    if (view.lcd) {
        parts.push_back(drawLcd(*view.lcd, width));
    }
    parts.push_back(drawLeds(view.leds, width));
    if (extent == SvgExtent::Panel) {
        parts.push_back(drawKeys(view.keys, width));
    }
    Units y = margin;
    std::string drawn;
    for (const Part& part : parts) {
        if (part.height != 0) {
            drawn += group(margin, y, part.svg);
            y += part.height + gap;
        }
    }
    const Units outerWidth = width + 2 * margin;
    const Units outerHeight = y - (drawn.empty() ? 0 : gap) + margin;
    const std::string size = std::to_string(outerWidth) + " " + std::to_string(outerHeight);
    return "<svg" + attribute("xmlns", "http://www.w3.org/2000/svg") + attribute("viewBox", "0 0 " + size) +
           attribute("width", outerWidth) + attribute("height", outerHeight) + attribute("role", "img") +
           attribute("font-family", "DejaVu Sans Mono, Liberation Mono, Menlo, Consolas, monospace") +
           attribute("font-size", textSize) + attribute("text-anchor", "middle") + ">\n<title>Front panel</title>\n" +
           drawBody(outerWidth, outerHeight) + drawn + "</svg>\n";
}

} // namespace panelsim
