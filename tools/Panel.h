#pragma once

#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/fp/IFp.h"
#include "frontpanelhw/fp/ILcdFp.h"
#include "tools/Wiring.h"

#include <functional>
#include <memory>

namespace tools {

/** The panel that is fitted, indoor or outdoor, with all its keys and LEDs and its display, if it has one. */
class Panel {
public:
    /**
     * @param wiring with the panel known
     * @throws std::exception whatever a pin throws
     */
    explicit Panel(const Wiring& wiring);

    /** @return all lines of a panel */
    static UsedLines usedLines() { return {false, true, true, true}; }

    /**
     * Does the work. If it fails, the panel is stopped, as far as that goes, before the failure reaches the caller:
     * LEDs shall not go on telling what is no longer so.
     */
    void run(const std::function<void()>& work) const;

    frontpanelhw::fp::IFp& keysAndLeds() const { return *panel; }

    /** @return false when the display failed; without a display, true */
    bool show(const frontpanelhw::drawing::DisplayBuffer& page) const;

private:
    std::unique_ptr<frontpanelhw::fp::IFp> panel;
    frontpanelhw::fp::ILcdFp* display = nullptr;
};

} // namespace tools
