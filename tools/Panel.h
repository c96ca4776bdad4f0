#pragma once

#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/fp/IFp.h"
#include "frontpanelhw/fp/ILcdFp.h"
#include "tools/Wiring.h"

#include <functional>
#include <memory>

namespace tools {

/** What the user is told before a display that failed is started anew. */
constexpr const char* displayStartsAnew = "the display failed and is started anew";

/** The panel that is fitted, indoor or outdoor, with all its keys and LEDs and its display, if it has one. */
class Panel {
public:
    /**
     * @param wiring with the panel known
     * @throws std::exception whatever a pin throws
     */
    explicit Panel(Wiring wiring);

    /** @return all lines of a panel */
    static UsedLines usedLines() { return {false, true, true, true}; }

    /**
     * Does the work. If it fails, the panel is stopped, as far as that goes, before the failure reaches the caller:
     * LEDs shall not go on telling what is no longer so.
     */
    void run(const std::function<void()>& work) const;

    /** @return the panel, until show starts it anew */
    frontpanelhw::fp::IFp& keysAndLeds() const { return *panel; }

    /**
     * Shows a page. If the display fails, the whole panel is stopped, destroyed and constructed anew, after which the
     * display is certain to show what it is told; the page is then printed once more. If that fails too, it is left at
     * printing until a page succeeds again.
     * @param restore what to do with the new panel, whose polling is stopped and whose LEDs are as at the start
     * @return false when the display failed in spite of that; without a display, true
     * @throws std::exception whatever a pin throws while the panel is constructed; there is no panel then
     */
    bool show(
        const frontpanelhw::drawing::DisplayBuffer& page, const std::function<void()>& restore = [] {});

private:
    void construct();
    void stopAsFarAsItGoes() const;

    Wiring wiring;
    std::unique_ptr<frontpanelhw::fp::IFp> panel;
    frontpanelhw::fp::ILcdFp* display = nullptr;
    bool mayStartAnew = true;
};

} // namespace tools
