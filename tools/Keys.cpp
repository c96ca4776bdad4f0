#include "tools/Keys.h"

#include "frontpanelhw/fp/FpBase.h"
#include "frontpanelhw/handler/KeyEventQueue.h"
#include "sysfs/SysfsGpioFactory.h"
#include "tools/Output.h"

#include <memory>
#include <string>
#include <utility>

namespace tools {

namespace handler = frontpanelhw::handler;

// The callback uses neither LEDs nor display: their operations are for one thread at a time, and keys would go unseen
// while the display is written. It prints the text because the panel's log line for the event comes from the same
// thread: from another thread the text could land inside the log line of the next event.
std::function<void(unsigned, bool)> reportTo(Interrupt& interrupt, std::function<void(unsigned, bool)> next)
{
    const auto printed = std::make_shared<handler::KeyEventQueue>();
    return [&interrupt, next = std::move(next), printed, add = printed->callback()](unsigned key, bool pressed) {
        add(key, pressed);
        while (const auto event = printed->next(std::chrono::milliseconds(0))) {
            constexpr const char* words[] = {" pressed", " repeated", " released"};
            printLine("key " + std::to_string(event->key) + words[static_cast<unsigned>(event->action)]);
        }
        if (next) {
            next(key, pressed);
        }
        if (outputFailed()) {
            interrupt.end();
        }
        interrupt.wake();
    };
}

void watchKeys(const Wiring& given, Interrupt& interrupt)
{
    Wiring wiring = given;
    if (given.givenKeyCount) {
        checkWiring(wiring, KeyLines);
    } else {
        wiring = resolvePanel(given, KeyLines); // how many keys there are depends on the panel
    }
    requireReadable(wiring.keyBase, wiring.keyCount());
    sysfs::SysfsGpioFactory factory;
    frontpanelhw::fp::FpBase keys(factory, wiring.keyBase, wiring.keyCount(), wiring.ledBase, 0, {}, {});
    keys.connectAnyKeyChangedCb(reportTo(interrupt));
    keys.start(false, 0);
    while (interrupt.wait()) {
    }
}

} // namespace tools
