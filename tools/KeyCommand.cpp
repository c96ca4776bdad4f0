#include "tools/KeyCommand.h"

#include "frontpanelhw/fp/FpBase.h"
#include "sysfs/SysfsGpioFactory.h"
#include "tools/KeyTracker.h"
#include "tools/Output.h"

#include <optional>

namespace tools {

// Nothing but text is written here, on the panel's polling thread: LED and display operations are for one thread at a
// time, and keys would go unseen while the display is written. The text is written here because the panel's log line
// for the event is, too; from another thread it could land inside the log line of the next event.
std::function<void(unsigned, bool)> reportTo(KeyEventQueue& events)
{
    return [&events, tracker = KeyTracker()](unsigned key, bool pressed) mutable {
        const KeyEvent event = tracker.track(key, pressed);
        printLine(describe(event));
        events.push(event);
    };
}

void watchKeys(const Wiring& given, Interrupt& interrupt)
{
    UsedLines used;
    used.keys = true;
    Wiring wiring = given;
    if (given.givenKeyCount) {
        checkWiring(wiring, used);
    } else {
        wiring = resolvePanel(given, used); // how many keys there are depends on the panel
    }
    requireReadable(wiring.keyBase, wiring.keyCount());
    sysfs::SysfsGpioFactory factory;
    KeyEventQueue events;
    frontpanelhw::fp::FpBase keys(factory, wiring.keyBase, wiring.keyCount(), wiring.ledBase, 0, {}, {});
    keys.connectAnyKeyChangedCb(reportTo(events));
    keys.start(false, 0);
    while (interrupt.wait(std::nullopt, events.descriptor()) == Interrupt::Wakeup::Readable && !outputFailed()) {
        events.take();
    }
    keys.stop();
}

} // namespace tools
