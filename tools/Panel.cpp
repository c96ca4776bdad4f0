#include "tools/Panel.h"

#include "frontpanelhw/fp/Indoor.h"
#include "frontpanelhw/fp/Outdoor.h"

#include <exception>
#include <utility>

namespace tools {

namespace fp = frontpanelhw::fp;

Panel::Panel(const Wiring& wiring)
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
        try {
            panel->stop();
        } catch (const std::exception&) {
            // The failure that is already on its way says more.
        }
        throw;
    }
}

bool Panel::show(const frontpanelhw::drawing::DisplayBuffer& page) const
{
    return display == nullptr || display->printBuffer(page);
}

} // namespace tools
