#include "tools/Panel.h"

#include "tools/Output.h"

#include <exception>

namespace tools {

using frontpanelhw::drawing::DisplayBuffer;

DisplayBuffer blankPage(bool inverted)
{
    DisplayBuffer page(displayChars, displayLines);
    for (unsigned line = 0; line < displayLines; ++line) {
        page.setInverted(line, inverted, 0, displayChars - 1);
    }
    return page;
}

Panel::Panel(const Wiring& wiring)
    : panel(wiring.kind().construct(wiring)), display(dynamic_cast<frontpanelhw::fp::Indoor*>(panel.get()))
{
}

Panel::~Panel()
{
    if (std::uncaught_exceptions() > 0) {
        try {
            panel->stop();
        } catch (const std::exception&) {
            // The failure that led here says more.
        }
    }
}

bool Panel::show(const DisplayBuffer& page)
{
    bool shown = display == nullptr || display->printBuffer(page);
    if (!shown && mayRestart) {
        complain("the display failed and is started again");
        display->restartDisplay();
        shown = display->printBuffer(page);
    }
    mayRestart = shown;
    return shown;
}

bool Panel::setContrast(unsigned percent)
{
    return display->setContrast(percent);
}

bool Panel::testLamps(unsigned seconds, Interrupt& interrupt)
{
    panel->setAllLeds(true);
    const bool filled = show(blankPage(true));
    interrupt.wait(Interrupt::Clock::now() + std::chrono::seconds(seconds));
    panel->setAllLeds(false);
    return show(blankPage()) && filled;
}

} // namespace tools
