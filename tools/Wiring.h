#pragma once

#include <optional>
#include <vector>

namespace tools {

/** Which panel is fitted, and on which GPIO lines. */
struct Wiring {
    /** Auto: not known, the ID lines tell. */
    enum class Panel { Auto, Indoor, Outdoor };

    Panel panel = Panel::Auto;
    unsigned idBase = 4;
    unsigned keyBase = 10;
    unsigned ledBase = 20;
    unsigned lcdBase = 40;
    std::optional<unsigned> givenKeyCount;
    std::optional<unsigned> givenLedCount;
    std::vector<unsigned> invertedLeds; ///< LED indexes, and the backlight's GPIO number if that is active-low
    std::vector<unsigned> ledsOn;       ///< LED indexes

    unsigned keyCount() const;
    unsigned ledCount() const;

    /** @return the GPIO number right after the last LED */
    unsigned backlight() const { return ledBase + ledCount(); }
};

/** Which lines a command uses. */
struct UsedLines {
    bool ids = false;
    bool keys = false;
    bool leds = false;
    bool display = false; ///< with its backlight, where the panel has one
};

/**
 * Looks for contradictions in what is known, without use of a GPIO; overlaps count only among the lines in use.
 * @throws UsageError for the first one found
 */
void checkWiring(const Wiring& wiring, const UsedLines& used);

/**
 * @return the wiring, checked, with the panel that is fitted: the one given, else the one that the ID lines show
 * @throws UsageError for a contradiction, before a GPIO is used if it holds for either panel
 * @throws std::exception when the ID lines show no known panel or cannot be used
 */
Wiring resolvePanel(const Wiring& wiring, const UsedLines& used);

/**
 * Reads lines once, since the library passes over ID lines and keys that it cannot read.
 * @throws std::exception what the line throws that cannot be read
 */
void requireReadable(unsigned firstGpio, unsigned count);

} // namespace tools
