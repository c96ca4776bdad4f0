#pragma once

#include "tools/PanelKind.h"

#include <optional>
#include <string>
#include <vector>

namespace tools {

/** Which panel is fitted, and on which GPIO lines. */
struct Wiring {
    const PanelKind* panel = nullptr; ///< without one, the ID lines show it
    unsigned idBase = 4;
    unsigned keyBase = 10;
    unsigned ledBase = 20;
    unsigned lcdBase = 40;
    std::optional<unsigned> givenKeyCount;
    std::optional<unsigned> givenLedCount;
    std::vector<unsigned> invertedLeds; ///< LED indexes, and the backlight's GPIO number if that is active-low
    std::vector<unsigned> ledsOn;       ///< LED indexes

    const PanelKind& kind() const { return panel != nullptr ? *panel : panelKinds.front(); }
    unsigned keyCount() const { return givenKeyCount.value_or(kind().keyCount); }
    unsigned ledCount() const { return givenLedCount.value_or(kind().ledCount); }

    /** @return the GPIO number right after the last LED */
    unsigned backlight() const { return ledBase + ledCount(); }
};

/** Lines that a command uses, to be combined. */
enum Lines : unsigned {
    IdLines = 1,
    KeyLines = 2,
    LedLines = 4,
    DisplayLines = 8, ///< with the backlight, where the panel has a display
    PanelLines = KeyLines | LedLines | DisplayLines
};

/** @return the complaint about an LED that the panel does not have */
std::string noLed(const Wiring& wiring, unsigned led);

/**
 * Looks for contradictions in what is known, without use of a GPIO; overlaps count only among the lines in use.
 * @throws UsageError for the first one found
 */
void checkWiring(const Wiring& wiring, unsigned linesInUse);

/**
 * @return the wiring, checked, with the panel that is fitted: the one given, else the one that the ID lines show
 * @throws UsageError for a contradiction, before a GPIO is used if it holds for every panel
 * @throws std::exception when the ID lines show no known panel or cannot be used
 */
Wiring resolvePanel(const Wiring& wiring, unsigned linesInUse);

/**
 * Reads lines once, since the library only logs ID lines and keys that it cannot read: it takes a wrong ID then, and
 * after a key that cannot be read at start-up all later keys are dead too.
 * @throws std::exception what the line throws that cannot be read
 */
void requireReadable(unsigned firstGpio, unsigned count);

} // namespace tools
