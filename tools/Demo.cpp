#include "tools/Demo.h"

#include "tools/DisplaySize.h"
#include "tools/KeyCommand.h"
#include "tools/KeyEventQueue.h"
#include "tools/LampTest.h"
#include "tools/Output.h"
#include "tools/PrintedPage.h"

namespace tools {

namespace {

constexpr const char* displayFailure = "the display failed";

std::string sentence(const KeyEvent& event)
{
    std::string key = "Key " + std::to_string(event.key);
    switch (event.change) {
    case KeyEvent::Change::Pressed:
        return key + " pressed";
    case KeyEvent::Change::Repeated:
        return key + " held (" + std::to_string(event.repeats) + (event.repeats == 1 ? " repeat)" : " repeats)");
    case KeyEvent::Change::Released:
        return key + " released";
    }
    return key;
}

/** @return the text, which is ASCII, as far as it fits a line */
std::u16string toLine(const std::string& text)
{
    return std::u16string(text.begin(), text.end()).substr(0, DisplaySize::chars);
}

} // namespace

bool Demo::run(const Wiring& given, const Times& times, Interrupt& interrupt)
{
    const Wiring resolved = resolvePanel(given, Panel::usedLines());
    requireReadable(resolved.keyBase, resolved.keyCount());
    KeyEventQueue events; // outlives the panel, whose polling thread fills it
    Panel fitted(resolved);
    Demo demo(fitted, resolved);
    fitted.run([&] { demo.play(times, interrupt, events); });
    return !demo.failed;
}

void Demo::play(const Times& times, Interrupt& interrupt, KeyEventQueue& events)
{
    note(testLamps(panel, times.lampTest, interrupt), displayFailure);
    std::optional<Interrupt::Clock::time_point> deadline;
    if (times.afterLampTest) {
        deadline = Interrupt::Clock::now() + *times.afterLampTest;
    }
    report = reportTo(events);
    startKeys();
    showPage();
    while (interrupt.wait(deadline, events.descriptor()) == Interrupt::Wakeup::Readable && !outputFailed()) {
        // A page takes longer than a poll of the keys: only the last of several events is shown, but LEDs see all.
        for (const KeyEvent& event : events.take()) {
            apply(event);
        }
        showPage();
    }
    panel.keysAndLeds().stop();
    note(panel.show(PrintedPage().toBuffer(), [this] { panel.keysAndLeds().stop(); }), displayFailure);
}

Demo::Demo(Panel& shown, const Wiring& itsWiring) : panel(shown), wiring(itsWiring)
{
}

/** Also for a panel constructed anew, whose LEDs have to tell of keys that are held. */
void Demo::startKeys()
{
    panel.keysAndLeds().connectAnyKeyChangedCb(report);
    panel.keysAndLeds().start(false, 0);
    for (const unsigned key : heldKeys) {
        switchLed(key);
    }
}

void Demo::apply(const KeyEvent& event)
{
    ++eventCount;
    lastEvent = sentence(event);
    if (event.change == KeyEvent::Change::Released) {
        heldKeys.erase(event.key);
    } else {
        heldKeys.insert(event.key);
    }
    switchLed(event.key);
}

/** Lets the LED of the key's number tell whether the key is held. */
void Demo::switchLed(unsigned led)
{
    if (led < wiring.ledCount()) {
        note(panel.keysAndLeds().setLed(led, heldKeys.count(led) != 0), "LED " + std::to_string(led) + " on GPIO " +
                                                                            std::to_string(wiring.ledBase + led) +
                                                                            " did not take its level");
    }
}

void Demo::showPage()
{
    PrintedPage page;
    page.lines = {u" Front panel", toLine(lastEvent), toLine("Events: " + std::to_string(eventCount))};
    page.inverted = {{0, 0, DisplaySize::chars - 1}};
    note(panel.show(page.toBuffer(), [this] { startKeys(); }), displayFailure);
}

void Demo::note(bool ok, const std::string& failure)
{
    if (!ok && !failed) {
        complain(failure);
        failed = true;
    }
}

} // namespace tools
