#include "tools/Panel.h"

#include "tools/Output.h"

#include <exception>
#include <utility>

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

Panel::Panel(Wiring itsWiring) : wiring(std::move(itsWiring))
{
    construct();
}

Panel::~Panel()
{
    if (std::uncaught_exceptions() > 0) {
        stopEvenIfPinsFail();
    }
}

void Panel::construct()
{
    panel = wiring.kind().construct(wiring);
    display = dynamic_cast<frontpanelhw::fp::ILcdFp*>(panel.get());
}

void Panel::stopEvenIfPinsFail() const
{
    try {
        if (panel) {
            panel->stop();
        }
    } catch (const std::exception&) {
        // The failure that led here says more.
    }
}

bool Panel::show(const DisplayBuffer& page, const std::function<void()>& restore)
{
    bool shown = display == nullptr || display->printBuffer(page);
    if (!shown && mayConstructAgain) {
        complain("the display failed and is started again");
        stopEvenIfPinsFail();
        panel.reset(); // releases the lines, which the new one needs
        construct();
        shown = display->printBuffer(page);
        restore();
    }
    mayConstructAgain = shown;
    return shown;
}

bool Panel::testLamps(unsigned seconds, Interrupt& interrupt)
{
    const auto lightAll = [this] { panel->setAllLeds(true); };
    lightAll();
    const bool filled = show(blankPage(true), lightAll);
    interrupt.wait(Interrupt::Clock::now() + std::chrono::seconds(seconds));
    panel->setAllLeds(false);
    return show(blankPage()) && filled;
}

} // namespace tools
