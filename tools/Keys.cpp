#include "tools/Keys.h"

#include "frontpanelhw/fp/FpBase.h"
#include "sysfs/SysfsGpioFactory.h"
#include "tools/Output.h"

#include <memory>
#include <string>

namespace tools {

using frontpanelhw::handler::KeyEventQueue;

// The callback uses neither LEDs nor display: their operations are for one thread at a time, and keys would go unseen
// while the display is written. It prints the text because the panel's log line for the event comes from the same
// thread: from another thread the text could land inside the log line of the next event.
std::function<void(unsigned, bool)> printAndPass(const KeyEventQueue& queue, Interrupt& interrupt)
{
    const auto printed = std::make_shared<KeyEventQueue>();
    return [&interrupt, printed, print = printed->callback(), pass = queue.callback()](unsigned key, bool pressed) {
        constexpr const char* words[] = {" pressed", " repeated", " released"};
        print(key, pressed);
        const auto event = printed->next(std::chrono::milliseconds(0));
        printLine("key " + std::to_string(key) + words[static_cast<unsigned>(event->action)]);
        if (outputFailed()) {
            interrupt.end();
        }
        pass(key, pressed);
    };
}

void watchKeys(Wiring wiring, Interrupt& interrupt)
{
    if (wiring.givenKeyCount) {
        checkWiring(wiring, KeyLines);
    } else {
        wiring = resolvePanel(wiring, KeyLines); // how many keys there are depends on the panel
    }
    requireReadable(wiring.keyBase, wiring.keyCount());
    KeyEventQueue events;
    sysfs::SysfsGpioFactory factory;
    frontpanelhw::fp::FpBase keys(factory, wiring.keyBase, wiring.keyCount(), wiring.ledBase, 0, {}, {});
    keys.connectAnyKeyChangedCb(printAndPass(events, interrupt));
    keys.start(false, 0);
    while (interrupt.wait(std::nullopt, events.descriptor())) {
        events.next(std::chrono::milliseconds(0));
    }
}

} // namespace tools
