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

/**
 * Looks for contradictions in what is known, without use of a GPIO: the display's lines count only where an indoor
 * panel is meant.
 * @param withIdLines whether the ID lines are used, too
 * @throws UsageError for the first one found
 */
void checkWiring(const Wiring& wiring, bool withIdLines = false);

/**
 * @return the wiring, checked, with the panel that is fitted: the one given, else the one that the ID lines show
 * @throws UsageError for a contradiction, before a GPIO is used if it holds for either panel
 * @throws std::exception when the ID lines show no known panel or cannot be used
 */
Wiring resolvePanel(const Wiring& wiring);

} // namespace tools
