#pragma once

#include <array>
#include <chrono>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace panelsim {

/** A kind of front panel that is made. */
struct PanelKind {
    const char* name;
    unsigned id; ///< level of the four ID lines, bit 0 first
    unsigned keyCount;
    unsigned ledCount;
    bool hasLcd;
    bool isVariable; ///< whether numbers and polarities of its keys and LEDs can be chosen
};

/** All kinds; the first one is simulated unless another is wanted. */
inline constexpr std::array panelKinds = {
    PanelKind{"indoor", 15, 3, 8, true, true},
    PanelKind{"outdoor", 5, 2, 8, false, false},
};

/** A colour that a LED lights in. */
struct LedColour {
    const char* name;
    const char* lamp;   ///< in pictures, as in CSS
    const char* escape; ///< sequence that switches a terminal to it
};

/** All of them; a LED has the first one unless another is configured. */
inline constexpr std::array ledColours = {
    LedColour{"green", "#5df06c", "\033[32m"},  LedColour{"red", "#ff5c4d", "\033[31m"},
    LedColour{"yellow", "#ffe14d", "\033[33m"}, LedColour{"orange", "#ffa033", "\033[33m"},
    LedColour{"blue", "#5aa9ff", "\033[34m"},   LedColour{"white", "#f4f6f8", "\033[37m"},
};

constexpr unsigned idLineCount = 4;
constexpr unsigned dataLineCount = 8; ///< of the LCD, whose other lines follow them

/** Variants of the LCD's controller chip. */
enum class ChipVariant { Ra8803, Ra8806 };

/** What is wired where on a simulated board. Indexes count from 0; GPIO numbers are those that pins are exported by. */
struct BoardConfig {
    unsigned panelId = panelKinds[0].id;        ///< 0 to 15: level of the four ID lines, bit 0 first
    bool hasLcd = panelKinds[0].hasLcd;         ///< whether the LCD and its fourteen lines exist
    ChipVariant chip = ChipVariant::Ra8806;     ///< the LCD's controller
    unsigned idGpioBase = 4;                    ///< first of the four ID lines
    unsigned keyGpioBase = 10;                  ///< line of key 0
    unsigned ledGpioBase = 20;                  ///< line of LED 0; the backlight's is the one after the last LED
    unsigned lcdGpioBase = 40;                  ///< data line 0 of the LCD, then its other twelve
    unsigned keyCount = panelKinds[0].keyCount; ///< keys, each high while it is pressed
    unsigned ledCount = panelKinds[0].ledCount; ///< LEDs
    std::vector<unsigned> invertedLeds = {};    ///< indexes of LEDs that light when their line is low
    bool backlightInverted = false;             ///< whether the backlight lights when its line is low
    /** Shortest strobe that the bus takes, cabling included; 0 accepts any. */
    std::chrono::nanoseconds shortestStrobe = std::chrono::microseconds(10);
    std::string panel = panelKinds[0].name;   ///< name of the kind of panel
    std::vector<std::string> keyNames = {};   ///< empty, or one for each key, UTF-8 without control characters
    std::vector<std::string> ledNames = {};   ///< as keyNames
    std::vector<std::string> ledColours = {}; ///< empty, or one for each LED, a name of panelsim::ledColours
    bool silentChip = false;                  ///< whether the LCD's controller neither takes nor answers anything
    std::map<unsigned, bool> stuckLines = {}; ///< GPIO and level, true = high, of lines that follow nobody
};

/** @return a board with a panel of that kind */
BoardConfig boardOf(const PanelKind& kind);

/** @return the kind of that name @throws std::invalid_argument when there is none */
const PanelKind& panelKind(std::string_view name);

/** @return the key's name, its number if it has none */
std::string keyName(const BoardConfig& config, unsigned key);
/** @return the LED's name, its number if it has none */
std::string ledName(const BoardConfig& config, unsigned led);
/** @return the LED's colour, the first of panelsim::ledColours unless another is configured */
const LedColour& ledColour(const BoardConfig& config, unsigned led);

} // namespace panelsim
