#pragma once

#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/fp/IFp.h"
#include "frontpanelhw/fp/ILcdFp.h"
#include "tools/Interrupt.h"
#include "tools/Wiring.h"

#include <functional>
#include <memory>

namespace tools {

/** The display's size, known before a panel is constructed: a text that does not fit is refused before a GPIO is used.
 */
constexpr unsigned displayLines = 3;
constexpr unsigned displayChars = 25;

/** @return a page of spaces, all inverted or none */
frontpanelhw::drawing::DisplayBuffer blankPage(bool inverted = false);

/** Owns the panel that is fitted, with all its keys and LEDs and its display, if it has one. */
class Panel {
public:
    /**
     * @param wiring with the panel known
     * @throws std::exception when a pin throws
     */
    explicit Panel(Wiring wiring);

    /**
     * Releases all lines. When an exception ends the panel's use, stops it first, even if a pin fails again: LEDs must
     * not go on showing what no longer holds.
     */
    ~Panel();

    Panel(const Panel&) = delete;
    Panel& operator=(const Panel&) = delete;

    /** @return the panel, until show constructs another one */
    frontpanelhw::fp::IFp& keysAndLeds() const { return *panel; }

    /**
     * Shows a page. If the display fails, the whole panel is stopped, destroyed and constructed again, which writes all
     * registers of the display, and the page is printed once more. If that fails too, later pages are only printed,
     * until one succeeds.
     * @param restore what to do with the new panel, whose polling is stopped and whose LEDs are as at the start
     * @return false when the display failed in spite of that; without a display, true
     * @throws std::exception when a pin throws while the panel is constructed; there is no panel then
     */
    bool show(
        const frontpanelhw::drawing::DisplayBuffer& page, const std::function<void()>& restore = [] {});

    /**
     * Lights every LED and fills the display, for a time or until interrupted. Then the LEDs go back to their states
     * and the display shows an empty page.
     * @return false when the display failed
     */
    bool testLamps(unsigned seconds, Interrupt& interrupt);

private:
    void construct();
    void stopEvenIfPinsFail() const;

    Wiring wiring;
    std::unique_ptr<frontpanelhw::fp::IFp> panel;
    frontpanelhw::fp::ILcdFp* display = nullptr;
    bool mayConstructAgain = true;
};

} // namespace tools
