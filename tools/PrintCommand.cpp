#include "tools/PrintCommand.h"

#include "frontpanelhw/fp/Indoor.h"
#include "tools/Output.h"
#include "tools/Panel.h"
#include "tools/UsageError.h"

#include <stdexcept>

namespace tools {

namespace {

constexpr const char* noDisplay = "the outdoor panel has no display";

/** Constructs the panel, without keys and LEDs: the backlight then is on the first LED's number. */
bool printOnNewPanel(const Wiring& wiring, const frontpanelhw::drawing::DisplayBuffer& page)
{
    frontpanelhw::fp::Indoor display(wiring.keyBase, wiring.backlight(), wiring.lcdBase, 0, 0, wiring.invertedLeds, {});
    return display.printBuffer(page);
}

} // namespace

void printPage(const Wiring& wiring, const PrintedPage& page)
{
    if (wiring.panel == Wiring::Panel::Outdoor) {
        throw UsageError(noDisplay);
    }
    UsedLines used;
    used.display = true;
    const Wiring resolved = resolvePanel(wiring, used);
    if (resolved.panel == Wiring::Panel::Outdoor) {
        throw std::runtime_error(noDisplay);
    }
    const frontpanelhw::drawing::DisplayBuffer buffer = page.toBuffer();
    if (printOnNewPanel(resolved, buffer)) {
        return;
    }
    complain(displayStartsAnew);
    if (!printOnNewPanel(resolved, buffer)) {
        throw std::runtime_error("the display failed to show the text");
    }
}

} // namespace tools
