#include "panelsim/picture/PanelSvg.h"

#include "panelsim/board/LedColour.h"
#include "panelsim/picture/Glyph.h"
#include "panelsim/picture/PanelText.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace panelsim {

namespace {

using Units = std::size_t; ///< lengths in the drawing
using Attributes = std::vector<std::pair<const char*, std::string>>;

constexpr Units margin = 44; ///< between the panel's edge and its parts
constexpr Units gap = 26;    ///< between its parts
constexpr Units rowGap = 14; ///< between rows of LEDs or keys
constexpr Units bodyGap = 8; ///< between the panel and its keys
constexpr Units bezel = 16;
constexpr Units glassMargin = 14;
constexpr Units cellWidth = 22;
constexpr Units cellHeight = 38;
constexpr Units smallestWidth = 610; ///< of the parts
constexpr Units textSize = 18;
constexpr unsigned normalContrast = 15;
constexpr const char* sansSerif = "system-ui, Segoe UI, Roboto, Helvetica Neue, DejaVu Sans, sans-serif";
constexpr const char* monospace = "DejaVu Sans Mono, Liberation Mono, Menlo, Consolas, monospace";

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
    std::string ink;   ///< opacity of the dots that are set
    std::string ghost; ///< opacity of the dots that are not
};

std::string toText(Units value)
{
    return std::to_string(value);
}

std::string element(const std::string& name, const Attributes& attributes, const std::string& content = {})
{
    std::string svg = "<" + name;
    for (const auto& [attribute, value] : attributes) {
        svg += std::string(" ") + attribute + "=\"" + value + "\"";
    }
    return svg + (content.empty() ? "/>" : ">" + content + "</" + name + ">");
}

std::string draw(const std::string& name, Attributes attributes, const Attributes& more)
{
    attributes.insert(attributes.end(), more.begin(), more.end());
    return element(name, attributes) + "\n";
}

std::string rectangle(const Box& box, Units radius, const char* fill, const Attributes& more = {})
{
    return draw("rect",
                {{"x", toText(box.x)},
                 {"y", toText(box.y)},
                 {"width", toText(box.width)},
                 {"height", toText(box.height)},
                 {"rx", toText(radius)},
                 {"fill", fill}},
                more);
}

std::string circle(Units x, Units y, Units radius, const char* fill, const Attributes& more = {})
{
    return draw("circle", {{"cx", toText(x)}, {"cy", toText(y)}, {"r", toText(radius)}, {"fill", fill}}, more);
}

Attributes outline(const char* stroke, Units width)
{
    return {{"stroke", stroke}, {"stroke-width", toText(width)}};
}

std::string escaped(const std::string& text)
{
    std::string result;
    for (const char c : text) {
        result += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
    }
    return result;
}

std::string line(Units x, Units y, const char* fill, const std::string& text, Units size, Attributes more)
{
    more.insert(more.begin(), {{"x", toText(x)}, {"y", toText(y)}, {"fill", fill}});
    if (size < textSize) {
        more.emplace_back("font-size", toText(size));
    }
    return element("text", more, escaped(text)) + "\n";
}

/** @return size in which a text is at most so wide, of a font whose characters are 3/5 as wide as it is high */
Units fittingSize(const std::string& text, Units room)
{
    const auto characters =
        std::count_if(text.begin(), text.end(), [](unsigned char c) { return (c & 0xC0U) != 0x80; });
    return std::clamp<Units>(room * 5 / 3 / static_cast<Units>(std::max<std::ptrdiff_t>(characters, 1)), 1, textSize);
}

/** @param room width for the text: a longer one goes into two lines and becomes smaller */
std::string caption(Units x, Units y, const char* fill, const std::string& text, Units room,
                    const Attributes& more = {})
{
    const Units size = fittingSize(text, room);
    const std::size_t blank = size < textSize ? text.find(' ', text.size() / 3) : std::string::npos;
    if (blank == std::string::npos) {
        return line(x, y, fill, text, size, more);
    }
    const std::string first = text.substr(0, blank);
    const std::string second = text.substr(blank + 1);
    const Units smaller = std::min({fittingSize(first, room), fittingSize(second, room), Units{12}});
    return line(x, y - 8, fill, first, smaller, more) + line(x, y + 4, fill, second, smaller, more);
}

std::string group(Units x, Units y, const std::string& content)
{
    return element("g", {{"transform", "translate(" + toText(x) + " " + toText(y) + ")"}}, "\n" + content) + "\n";
}

/** @param percent 4 to 100 */
std::string opacity(unsigned percent)
{
    return percent >= 100 ? "1" : (percent < 10 ? "0.0" : "0.") + std::to_string(percent);
}

/** Ink is full from the normal contrast on; above it, the dots that are not set darken too. */
Glass glassOf(const LcdView& lcd)
{
    const unsigned contrast = lcd.contrast.value_or(normalContrast);
    const unsigned above = std::max(contrast, normalContrast) - normalContrast;
    return {lcd.backlight ? "#bfe04a" : "#7f8a78", opacity(10 + 6 * contrast), opacity(4 + 2 * above)};
}

std::string drawCells(const std::vector<LcdCell>& line, Units y, const Glass& glass)
{
    std::string empty;
    std::string centres;
    for (std::size_t i = 0; i < line.size(); ++i) {
        empty += "M" + toText(i * cellWidth + 1) + " " + toText(y + 1) + "h20v36h-20z";
        centres += (i == 0 ? "" : " ") + toText(i * cellWidth + cellWidth / 2);
    }
    std::string svg = draw("path", {{"d", empty}, {"fill", inkColour}, {"fill-opacity", glass.ghost}}, {});
    std::string text;
    for (auto begin = line.begin(); begin != line.end();) {
        const bool inverted = begin->inverted;
        const auto end = std::find_if(begin, line.end(), [&](const LcdCell& c) { return c.inverted != inverted; });
        std::string glyphs;
        std::for_each(begin, end, [&](const LcdCell& cell) { glyphs += escaped(glyph(cell.code)); });
        if (inverted) {
            const auto x = static_cast<Units>(begin - line.begin()) * cellWidth;
            svg += rectangle({x, y, static_cast<Units>(end - begin) * cellWidth, cellHeight}, 0, inkColour,
                             {{"fill-opacity", glass.ink}, {"shape-rendering", "crispEdges"}});
            glyphs = element("tspan", {{"fill", glass.colour}, {"fill-opacity", "1"}}, glyphs);
        }
        text += glyphs;
        begin = end;
    }
    // A place for each glyph: cells align in any font.
    return svg +
           element("text",
                   {{"xml:space", "preserve"},
                    {"x", centres},
                    {"y", toText(y + 30)},
                    {"font-size", "32"},
                    {"fill", inkColour},
                    {"fill-opacity", glass.ink}},
                   text) +
           "\n";
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
    const Units height = bezel + glassHeight + 34;
    std::string cells;
    for (std::size_t row = 0; lcd.displayOn && row < lcd.lines.size(); ++row) {
        cells += drawCells(lcd.lines[row], row * cellHeight, glass);
    }
    return {height,
            rectangle({left - bezel, 0, glassWidth + 2 * bezel, height}, 12, shadowColour, outline(edgeColour, 2)) +
                rectangle({left, bezel, glassWidth, glassHeight}, 5, glass.colour, outline("#000000", 2)) +
                group(left + glassMargin, bezel + glassMargin, cells) +
                caption(width / 2, bezel + glassHeight + 23, faintPrintColour, describe(lcd), width)};
}

/** Lays things of one size out in rows, a single row centred; each is drawn around the middle of its place. */
template <typename Draw>
Part drawRows(std::size_t count, Units pitch, Units width, Units rowHeight, Draw drawOne)
{
    const std::size_t perRow = width / pitch;
    const Units left = (width - std::min(count, perRow) * pitch) / 2;
    Part part;
    for (std::size_t i = 0; i < count; ++i) {
        const Units top = i / perRow * (rowHeight + rowGap);
        part.svg += group(left + i % perRow * pitch, top, drawOne(static_cast<unsigned>(i), pitch / 2));
        part.height = top + rowHeight;
    }
    return part;
}

std::string drawLed(const BoardConfig& config, unsigned led, bool lit, Units middle)
{
    const Units room = 2 * middle - 6;
    const std::string name = caption(middle, 14, printColour, ledName(config, led), room);
    if (!lit) {
        return name + circle(middle, 40, 13, "#1c2a20", outline("#6d7a72", 2)) +
               caption(middle, 76, faintPrintColour, "off", room);
    }
    const char* const lamp = ledColour(config, led).lamp;
    // In words too, for who does not see the colour.
    const std::string state = config.ledColours.empty() ? "on" : ledColour(config, led).name;
    return name + circle(middle, 40, 19, lamp, {{"fill-opacity", "0.25"}}) +
           circle(middle, 40, 13, lamp, {{"stroke", "#ffffff"}, {"stroke-opacity", "0.75"}, {"stroke-width", "2"}}) +
           circle(middle, 40, 5, "#ffffff", {{"fill-opacity", "0.9"}}) + caption(middle, 76, printColour, state, room);
}

Part drawLeds(const BoardConfig& config, const std::vector<bool>& leds, Units width)
{
    return drawRows(leds.size(), width / (leds.size() <= 32 ? 8 : 12), width, 80,
                    [&](unsigned led, Units middle) { return drawLed(config, led, leds[led], middle); });
}

std::string drawKey(const BoardConfig& config, unsigned key, bool pressed, Units middle)
{
    const Box cap{middle - 44, pressed ? 6UL : 1UL, 88, 66};
    const std::string name = (config.keyNames.empty() ? "Key " : "") + keyName(config, key);
    const std::string drawn =
        rectangle({cap.x - 1, 6, cap.width + 2, 68}, 11, shadowColour) +
        rectangle(cap, 9, pressed ? "#aab4be" : "#d3d9df", outline(pressed ? "#ffffff" : "#f4f6f8", 2)) +
        caption(middle, cap.y + 39, shadowColour, name, cap.width - 8, {{"font-weight", "600"}});
    return pressed ? drawn + caption(middle, cap.y + 59, shadowColour, "pressed", 55) : drawn;
}

Part drawKeys(const BoardConfig& config, const std::vector<bool>& keys, Units width)
{
    return drawRows(keys.size(), 104, width, 75,
                    [&](unsigned key, Units middle) { return drawKey(config, key, keys[key], middle); });
}

std::string drawBody(const Box& box)
{
    return rectangle({box.x + 2, box.y + 2, box.width - 4, box.height - 4}, 18, bodyColour, outline(shadowColour, 3)) +
           rectangle({box.x + 6, box.y + 6, box.width - 12, box.height - 12}, 14, "none", outline(edgeColour, 2));
}

std::string drawScrews(Units width, Units height)
{
    const Units inset = 22;
    std::string screws;
    for (const Units y : {inset, height - inset}) {
        for (const Units x : {inset, width - inset}) {
            screws += circle(x, y, 8, "#9aa4ae", outline(shadowColour, 2)) +
                      rectangle({x - 6, y - 1, 12, 2}, 0, shadowColour);
        }
    }
    return screws;
}

/** @return the names of those that are set, after the heading */
template <typename NameOf>
std::string list(const char* heading, const std::vector<bool>& flags, NameOf nameOf)
{
    std::string names;
    for (unsigned i = 0; i < flags.size(); ++i) {
        names += flags[i] ? (names.empty() ? "" : ", ") + nameOf(i) : "";
    }
    return names.empty() ? "" : "\n" + std::string(heading) + names;
}

std::string inWords(const std::vector<LcdCell>& line)
{
    std::string glyphs;
    std::string inverted;
    for (auto begin = line.begin(); begin != line.end();) {
        const auto end =
            std::find_if(begin, line.end(), [&](const LcdCell& c) { return c.inverted != begin->inverted; });
        if (begin->inverted) {
            inverted += (inverted.empty() ? " (inverted: " : ", ") +
                        toText(static_cast<Units>(begin - line.begin()) + 1) + " to " +
                        toText(static_cast<Units>(end - line.begin()));
        }
        std::for_each(begin, end, [&](const LcdCell& cell) { glyphs += glyph(cell.code); });
        begin = end;
    }
    glyphs.erase(glyphs.find_last_not_of(' ') + 1);
    return (glyphs.empty() ? "blank" : glyphs) + inverted + (inverted.empty() ? "" : ")");
}

/** A line for each thing that is seen. */
std::string inWords(const BoardConfig& config, const PanelView& view, SvgExtent extent)
{
    std::string text = view.lcd ? describe(*view.lcd) : "This panel has no display";
    for (std::size_t row = 0; view.lcd && view.lcd->displayOn && row < view.lcd->lines.size(); ++row) {
        text += "\nLine " + std::to_string(row + 1) + ": " + inWords(view.lcd->lines[row]);
    }
    text += list("Lit LEDs: ", view.leds, [&](unsigned led) { return ledName(config, led); });
    if (extent == SvgExtent::Panel) {
        text += list("Pressed keys: ", view.keys, [&](unsigned key) { return keyName(config, key); });
    }
    return text;
}

} // namespace

std::string drawPanelSvg(const BoardConfig& config, const PanelView& view, SvgExtent extent)
{
    const Units width = std::max(view.lcd ? widthOfLcd(*view.lcd) : 0, smallestWidth);
    const Units outerWidth = width + 2 * margin;
    Units height = margin;
    std::string drawn;
    for (const Part& part : {view.lcd ? drawLcd(*view.lcd, width) : Part(), drawLeds(config, view.leds, width)}) {
        if (part.height != 0) {
            height += height == margin ? 0 : gap;
            drawn += group(margin, height, part.svg);
            height += part.height;
        }
    }
    height += margin;
    drawn = drawBody({0, 0, outerWidth, height}) + drawScrews(outerWidth, height) + drawn;
    if (extent == SvgExtent::Panel && !view.keys.empty()) {
        const Part keys = drawKeys(config, view.keys, width);
        const Units top = height + bodyGap;
        height = top + keys.height + 2 * bezel;
        drawn += drawBody({0, top, outerWidth, height - top}) +
                 element("g", {{"font-family", sansSerif}}, "\n" + group(margin, top + bezel, keys.svg)) + "\n";
    }
    return element("svg",
                   {{"xmlns", "http://www.w3.org/2000/svg"},
                    {"viewBox", "0 0 " + toText(outerWidth) + " " + toText(height)},
                    {"width", toText(outerWidth)},
                    {"height", toText(height)},
                    {"role", "img"},
                    {"font-family", monospace},
                    {"font-size", toText(textSize)},
                    {"text-anchor", "middle"}},
                   "\n<title>Front panel</title>\n" + element("desc", {}, escaped(inWords(config, view, extent))) +
                       "\n" + drawn) +
           "\n";
}

} // namespace panelsim
