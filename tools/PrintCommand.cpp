#include "tools/PrintCommand.h"

#include "frontpanelhw/fp/Indoor.h"
#include "tools/UsageError.h"

#include <stdexcept>

namespace tools {

namespace {

constexpr const char* noDisplay = "the outdoor panel has no display";

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
    // A panel without keys and LEDs: the backlight then is on the first LED's number.
    frontpanelhw::fp::Indoor display(resolved.keyBase, resolved.backlight(), resolved.lcdBase, 0, 0,
                                     resolved.invertedLeds, {});
    if (!display.printBuffer(page.toBuffer())) {
        throw std::runtime_error("the display failed to show the text");
    }
}

} // namespace tools
