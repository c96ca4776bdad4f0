#include "panelsim/picture/PanelSvg.h"

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
constexpr Units smallestWidth = 610; ///< of the parts
constexpr Units textSize = 18;
constexpr unsigned normalContrast = 15;

constexpr const char* printColour = "#e4e8ec";
constexpr const char* faintPrintColour = "#a9b2bc";
constexpr const char* shadowColour = "#15181c";
constexpr const char* ink = R"( fill="#16210d")";
constexpr const char* edge = R"( stroke="#4b545e" stroke-width="2")";

/** A part of the panel, drawn from its own top left corner on. */
struct Part {
    Units height = 0;
    std::string svg = {};
};

template <typename... Pieces>
std::string join(const Pieces&... pieces)
{
    std::ostringstream text;
    (text << ... << pieces);
    return text.str();
}

std::string rectangle(Units x, Units y, Units width, Units height, Units radius, const std::string& attributes)
{
    return join("<rect x=\"", x, "\" y=\"", y, "\" width=\"", width, "\" height=\"", height, "\" rx=\"", radius, '"',
                attributes, "/>\n");
}

std::string circle(Units x, Units y, Units radius, const std::string& attributes)
{
    return join("<circle cx=\"", x, "\" cy=\"", y, "\" r=\"", radius, '"', attributes, "/>\n");
}

std::string filled(const char* colour)
{
    return join(" fill=\"", colour, '"');
}

std::string opacity(unsigned percent)
{
    return join(" fill-opacity=\"", std::min(percent, 100U) / 100.0, '"');
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
std::string caption(Units x, Units y, const char* colour, const std::string& text, Units room, const char* more = "")
{
    const auto line = [&](Units lineY, const std::string& part, Units size) {
        return join("<text x=\"", x, "\" y=\"", lineY, "\" font-size=\"", size, '"', filled(colour), more, '>',
                    escaped(part), "</text>\n");
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

bool beginsInversion(const std::vector<LcdCell>& line, std::size_t i)
{
    return line[i].inverted && (i == 0 || !line[i - 1].inverted);
}

bool endsInversion(const std::vector<LcdCell>& line, std::size_t i)
{
    return line[i].inverted && (i + 1 == line.size() || !line[i + 1].inverted);
}

/** @param glass its colour @param dots opacity of the dots that are set */
std::string drawCells(const std::vector<LcdCell>& line, Units y, const char* glass, const std::string& dots)
{
    std::string inverted;
    std::string text;
    std::string centres;
    for (std::size_t i = 0; i < line.size(); ++i) {
        inverted += line[i].inverted ? join('M', i * cellWidth, ' ', y, "h22v38h-22z") : "";
        text += beginsInversion(line, i) ? join("<tspan", filled(glass), opacity(100), '>') : "";
        text += escaped(glyph(line[i].code)) + (endsInversion(line, i) ? "</tspan>" : "");
        centres += join(i == 0 ? "" : " ", i * cellWidth + cellWidth / 2);
    }
    // A place for each glyph: cells align in any font.
    return join("<path d=\"", inverted, '"', ink, dots, R"( shape-rendering="crispEdges"/>)",
                R"(<text xml:space="preserve" x=")", centres, "\" y=\"", y + 30, R"(" font-size="32")", ink, dots, '>',
                text, "</text>\n");
}

Units widthOfLcd(const LcdView& lcd)
{
    return (lcd.lines.empty() ? 0 : lcd.lines.front().size()) * cellWidth + 2 * (glassMargin + bezel);
}

Part drawLcd(const LcdView& lcd, Units width)
{
    // Ink is full from the normal contrast on; above it, the dots that are not set darken too.
    const unsigned contrast = lcd.contrast.value_or(normalContrast);
    const std::string dots = opacity(10 + 6 * contrast);
    const char* const glass = lcd.backlight ? "#bfe04a" : "#7f8a78";
    const Units glassHeight = lcd.lines.size() * cellHeight + 2 * glassMargin;
    const Units glassWidth = widthOfLcd(lcd) - 2 * bezel;
    const Units left = (width - glassWidth) / 2;
    const Units height = bezel + glassHeight + 34;
    std::string emptyCells;
    std::string cells;
    for (std::size_t row = 0; lcd.displayOn && row < lcd.lines.size(); ++row) {
        for (std::size_t column = 0; column < lcd.lines[row].size(); ++column) {
            emptyCells += join('M', column * cellWidth + 1, ' ', row * cellHeight + 1, "h20v36h-20z");
        }
        cells += drawCells(lcd.lines[row], row * cellHeight, glass, dots);
    }
    const unsigned above = std::max(contrast, normalContrast) - normalContrast;
    return {height, rectangle(left - bezel, 0, glassWidth + 2 * bezel, height, 12, filled(shadowColour) + edge) +
                        rectangle(left, bezel, glassWidth, glassHeight, 5,
                                  filled(glass) + R"( stroke="#000000" stroke-width="2")") +
                        group(left + glassMargin, bezel + glassMargin,
                              join("<path d=\"", emptyCells, '"', ink, opacity(4 + 2 * above), "/>\n", cells)) +
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
        return name + circle(middle, 40, 13, R"( fill="#1c2a20" stroke="#6d7a72" stroke-width="2")") +
               caption(middle, 76, faintPrintColour, "off", room);
    }
    const LedColour& colour = ledColour(config, led);
    const std::string lamp = filled(colour.lamp);
    // In words too, for who does not see the colour.
    return name + circle(middle, 40, 19, lamp + opacity(25)) +
           circle(middle, 40, 13, lamp + R"( stroke="#ffffff" stroke-opacity="0.75" stroke-width="2")") +
           circle(middle, 40, 5, filled("#ffffff") + opacity(90)) +
           caption(middle, 76, printColour, config.ledColours.empty() ? "on" : colour.name, room);
}

std::string drawKey(const BoardConfig& config, unsigned key, bool pressed, Units middle)
{
    const Units left = middle - 44;
    const Units top = pressed ? 6 : 1;
    const std::string name = (config.keyNames.empty() ? "Key " : "") + keyName(config, key);
    const char* const look = pressed ? R"( fill="#aab4be" stroke="#ffffff" stroke-width="2")"
                                     : R"( fill="#d3d9df" stroke="#f4f6f8" stroke-width="2")";
    return rectangle(left - 1, 6, 90, 68, 11, filled(shadowColour)) + rectangle(left, top, 88, 66, 9, look) +
           caption(middle, top + 39, shadowColour, name, 80, R"( font-weight="600")") +
           (pressed ? caption(middle, top + 59, shadowColour, "pressed", 55) : "");
}

std::string drawBody(Units top, Units width, Units height)
{
    return rectangle(2, top + 2, width - 4, height - 4, 18, R"( fill="#2f353c" stroke="#15181c" stroke-width="3")") +
           rectangle(6, top + 6, width - 12, height - 12, 14, filled("none") + edge);
}

std::string drawScrew(Units x, Units y)
{
    return circle(x, y, 8, R"( fill="#9aa4ae" stroke="#15181c" stroke-width="2")") +
           rectangle(x - 6, y - 1, 12, 2, 0, filled(shadowColour));
}

std::string inWords(const std::vector<LcdCell>& line)
{
    std::string glyphs;
    std::string inverted;
    for (std::size_t i = 0; i < line.size(); ++i) {
        glyphs += glyph(line[i].code);
        inverted += beginsInversion(line, i) ? join(inverted.empty() ? " (inverted: " : ", ", i + 1) : "";
        inverted += endsInversion(line, i) ? join(" to ", i + 1) : "";
    }
    glyphs.erase(glyphs.find_last_not_of(' ') + 1);
    return (glyphs.empty() ? "blank" : glyphs) + inverted + (inverted.empty() ? "" : ")");
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
    const Units width = std::max(view.lcd ? widthOfLcd(*view.lcd) : 0, smallestWidth);
    const Units outerWidth = width + 2 * margin;
    const Part lcd = view.lcd ? drawLcd(*view.lcd, width) : Part();
    const Part leds =
        drawRows(view.leds.size(), width / (view.leds.size() <= 32 ? 8 : 12), width, 80,
                 [&](unsigned led, Units middle) { return drawLed(config, led, view.leds[led], middle); });
    const Units ledTop = margin + lcd.height + (lcd.height != 0 && leds.height != 0 ? gap : 0);
    Units height = ledTop + leds.height + margin;
    std::string drawn = drawBody(0, outerWidth, height) + drawScrew(22, 22) + drawScrew(outerWidth - 22, 22) +
                        drawScrew(22, height - 22) + drawScrew(outerWidth - 22, height - 22) +
                        group(margin, margin, lcd.svg) + group(margin, ledTop, leds.svg);
    if (extent == SvgExtent::Panel && !view.keys.empty()) {
        const Part keys = drawRows(view.keys.size(), 104, width, 75, [&](unsigned key, Units middle) {
            return drawKey(config, key, view.keys[key], middle);
        });
        const Units top = height + bodyGap;
        height = top + keys.height + 2 * bezel;
        drawn += drawBody(top, outerWidth, height - top) +
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
