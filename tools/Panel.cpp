#include "tools/Panel.h"

#include "frontpanelhw/fp/Indoor.h"
#include "frontpanelhw/fp/Outdoor.h"
#include "tools/Output.h"

#include <exception>
#include <utility>

namespace tools {

namespace fp = frontpanelhw::fp;

Panel::Panel(Wiring itsWiring) : wiring(std::move(itsWiring))
{
    construct();
}

void Panel::construct()
{
    if (wiring.panel == Wiring::Panel::Outdoor) {
        panel = std::make_unique<fp::Outdoor>(wiring.keyBase, wiring.ledBase);
        return;
    }
    auto indoor = std::make_unique<fp::Indoor>(wiring.keyBase, wiring.ledBase, wiring.lcdBase, wiring.keyCount(),
                                               wiring.ledCount(), wiring.invertedLeds, wiring.ledsOn);
    display = indoor.get();
    panel = std::move(indoor);
}

void Panel::run(const std::function<void()>& work) const
{
    try {
        work();
    } catch (...) {
        stopAsFarAsItGoes();
        throw;
    }
}

void Panel::stopAsFarAsItGoes() const
{
    try {
        if (panel) {
            panel->stop();
        }
    } catch (const std::exception&) {
        // The failure that led here says more.
    }
}

bool Panel::show(const frontpanelhw::drawing::DisplayBuffer& page, const std::function<void()>& restore)
{
    bool shown = display == nullptr || display->printBuffer(page);
    if (!shown && mayStartAnew) {
        complain(displayStartsAnew);
        stopAsFarAsItGoes();
        display = nullptr;
        panel.reset(); // gives its lines free, which the new one needs
        construct();
        shown = display->printBuffer(page);
        restore();
    }
    mayStartAnew = shown;
    return shown;
}

} // namespace tools
