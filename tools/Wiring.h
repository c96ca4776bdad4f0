#pragma once

#include "tools/PanelKind.h"

#include <optional>
#include <string>
#include <vector>

namespace tools {

/** Which panel is fitted, and on which GPIO lines. */
struct Wiring {
    const PanelKind* panel = nullptr; ///< null = the ID lines show it
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
 * Checks the wiring for contradictions without using a GPIO; only lines in use can overlap.
 * @throws UsageError for the first contradiction
 */
void checkWiring(const Wiring& wiring, unsigned linesInUse);

/**
 * @return the checked wiring with its panel or, if it has none, the panel that the ID lines show
 * @throws UsageError for a contradiction; before a GPIO is used if it applies to every panel
 * @throws std::exception when the ID lines show no known panel or cannot be used
 */
Wiring resolvePanel(const Wiring& wiring, unsigned linesInUse);

/**
 * Reads each line once. The library only logs a line that it cannot read: an ID line then gives a wrong ID, and after a
 * key that cannot be read at start-up all later keys are dead, too.
 * @throws std::exception from the first line that cannot be read
 */
void requireReadable(unsigned firstGpio, unsigned count);

} // namespace tools
