#include "tools/Panel.h"

#include "tools/Output.h"
#include "tools/Page.h"

#include <exception>

namespace tools {

Panel::Panel(const Wiring& wiring)
    : panel(wiring.panel->construct(wiring)), display(dynamic_cast<frontpanelhw::fp::Indoor*>(panel.get()))
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

bool Panel::show(const frontpanelhw::drawing::DisplayBuffer& page)
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

bool Panel::testLamps(unsigned seconds, Interrupt& interrupt)
{
    panel->setAllLeds(true);
    const bool filled = show(blankPage(true));
    interrupt.wait(Interrupt::Clock::now() + std::chrono::seconds(seconds));
    panel->setAllLeds(false);
    return show(blankPage()) && filled;
}

} // namespace tools
