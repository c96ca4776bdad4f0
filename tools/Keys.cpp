#include "tools/Keys.h"

#include "frontpanelhw/fp/FpBase.h"
#include "sysfs/SysfsGpioFactory.h"
#include "tools/Output.h"

namespace tools {

std::string describe(const KeyEvent& event)
{
    const char* const pressed = event.repeats == 0 ? " pressed" : " repeated";
    return "key " + std::to_string(event.key) + (event.pressed ? pressed : " released");
}

KeyEvent KeyEventQueue::push(unsigned key, bool pressed)
{
    const std::lock_guard<std::mutex> lock(mutex);
    KeyEvent event{key, pressed, 0};
    if (!pressed) {
        repeatsOfHeldKeys.erase(key);
    } else if (const auto [held, isNew] = repeatsOfHeldKeys.try_emplace(key, 0); !isNew) {
        event.repeats = ++held->second;
    }
    events.push_back(event);
    return event;
}

std::vector<KeyEvent> KeyEventQueue::take()
{
    const std::lock_guard<std::mutex> lock(mutex);
    std::vector<KeyEvent> taken;
    taken.swap(events);
    return taken;
}

void KeyEventQueue::clear()
{
    const std::lock_guard<std::mutex> lock(mutex);
    events.clear();
    repeatsOfHeldKeys.clear();
}

// The callback uses neither LEDs nor display: their operations are for one thread at a time, and keys would go unseen
// while the display is written. It prints the text because the panel's log line for the event comes from the same
// thread: from another thread the text could land inside the log line of the next event.
std::function<void(unsigned, bool)> reportTo(KeyEventQueue& events, Interrupt& interrupt)
{
    return [&events, &interrupt](unsigned key, bool pressed) {
        printLine(describe(events.push(key, pressed)));
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
    KeyEventQueue events;
    frontpanelhw::fp::FpBase keys(factory, wiring.keyBase, wiring.keyCount(), wiring.ledBase, 0, {}, {});
    keys.connectAnyKeyChangedCb(reportTo(events, interrupt));
    keys.start(false, 0);
    while (interrupt.wait()) {
        events.take();
    }
}

} // namespace tools
