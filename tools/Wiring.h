#pragma once

#include "tools/PanelKind.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tools {

/** Which panel is fitted, and on which GPIO lines. */
struct Wiring {
    const PanelKind* panel = &panelKinds.front();
    unsigned idBase = 4;
    unsigned keyBase = 10;
    unsigned ledBase = 20;
    unsigned lcdBase = 40;
    std::optional<unsigned> givenKeyCount;
    std::optional<unsigned> givenLedCount;
    std::vector<unsigned> invertedLeds; ///< LED indexes, and the backlight's GPIO number if that is active-low
    std::vector<unsigned> ledsOn;       ///< LED indexes

    unsigned keyCount() const { return givenKeyCount.value_or(panel->keyCount); }
    unsigned ledCount() const { return givenLedCount.value_or(panel->ledCount); }

    /** @return the GPIO number right after the last LED */
    std::uint64_t backlight() const { return std::uint64_t{ledBase} + ledCount(); }
};

/** Lines that a command uses, to be combined. */
enum Lines : unsigned {
    IdLines = 1,
    KeyLines = 2,
    LedLines = 4,
    DisplayLines = 8, ///< with the backlight, where the panel has a display
    PanelLines = KeyLines | LedLines | DisplayLines
};

/** @throws UsageError that names the option or argument when the panel does not have the LED */
void requireLed(const Wiring& wiring, const std::string& option, unsigned led);

/** @return the complaint about an LED whose pin returned false */
std::string ledFailure(const Wiring& wiring, unsigned led);

/**
 * Checks the wiring for contradictions without using a GPIO; only lines in use can overlap.
 * @throws UsageError for the first contradiction
 */
void checkWiring(const Wiring& wiring, unsigned linesInUse);

/**
 * @return the checked wiring with its panel or, if that is not known, the panel that the ID lines show
 * @throws UsageError for a contradiction; before a GPIO is used if it applies to every panel
 * @throws std::exception when the ID lines show no known panel or cannot be used
 */
Wiring resolvePanel(Wiring wiring, unsigned linesInUse);

/**
 * Reads each line once. The library only logs a line that it cannot read: an ID line then gives a wrong ID, and after a
 * key that cannot be read at start-up all later keys are dead, too.
 * @throws std::exception from the first line that cannot be read
 */
void requireReadable(unsigned firstGpio, unsigned count);

} // namespace tools
