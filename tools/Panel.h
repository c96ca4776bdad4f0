#pragma once

#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/fp/IFp.h"
#include "frontpanelhw/fp/Indoor.h"
#include "tools/Interrupt.h"
#include "tools/Wiring.h"

#include <memory>

namespace tools {

/** Owns the panel that is fitted, with all its keys and LEDs and its display, if it has one. */
class Panel {
public:
    /**
     * @param wiring with the panel known
     * @throws std::exception when a pin throws
     */
    explicit Panel(const Wiring& wiring);

    /**
     * Releases all lines. When an exception ends the panel's use, stops it first, even if a pin fails again: LEDs must
     * not go on showing what no longer holds.
     */
    ~Panel();

    Panel(const Panel&) = delete;
    Panel& operator=(const Panel&) = delete;

    frontpanelhw::fp::IFp& keysAndLeds() const { return *panel; }

    /** @return the panel if it has a display, null otherwise */
    frontpanelhw::fp::Indoor* withDisplay() const { return display; }

    /**
     * Shows a page. If the display fails, it is restarted and the page is printed once more. If that fails too, later
     * pages are only printed, until one succeeds.
     * @return false when the display failed in spite of that; without a display, true
     */
    bool show(const frontpanelhw::drawing::DisplayBuffer& page);

    /**
     * Lights every LED and fills the display, for a time or until interrupted. Then the LEDs go back to their states
     * and the display shows an empty page.
     * @return false when the display failed
     */
    bool testLamps(unsigned seconds, Interrupt& interrupt);

private:
    std::unique_ptr<frontpanelhw::fp::IFp> panel;
    frontpanelhw::fp::Indoor* display;
    bool mayRestart = true;
};

} // namespace tools
