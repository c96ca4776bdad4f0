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
    startKeys(events);
    showPage(events);
    while (interrupt.wait(deadline, events.descriptor()) == Interrupt::Wakeup::Readable && !outputFailed()) {
        // A page takes longer than a poll of the keys: only the last of several events is shown, but LEDs see all.
        for (const KeyEvent& event : events.take()) {
            apply(event);
        }
        showPage(events);
    }
    panel.keysAndLeds().stop();
    note(panel.show(PrintedPage().toBuffer(), [this] { panel.keysAndLeds().stop(); }), displayFailure);
}

Demo::Demo(Panel& shown, const Wiring& itsWiring) : panel(shown), wiring(itsWiring)
{
}

/** Also on a panel constructed anew: what keys did meanwhile is not known, and one still held tells so soon. */
void Demo::startKeys(KeyEventQueue& events)
{
    events.take();
    panel.keysAndLeds().connectAnyKeyChangedCb(reportTo(events));
    panel.keysAndLeds().start(false, 0);
}

void Demo::apply(const KeyEvent& event)
{
    ++eventCount;
    lastEvent = sentence(event);
    if (event.key < wiring.ledCount()) {
        note(panel.keysAndLeds().setLed(event.key, event.change != KeyEvent::Change::Released),
             "LED " + std::to_string(event.key) + " on GPIO " + std::to_string(wiring.ledBase + event.key) +
                 " did not take its level");
    }
}

void Demo::showPage(KeyEventQueue& events)
{
    PrintedPage page;
    page.lines = {u" Front panel", toLine(lastEvent), toLine("Events: " + std::to_string(eventCount))};
    page.inverted = {{0, 0, DisplaySize::chars - 1}};
    note(panel.show(page.toBuffer(), [&] { startKeys(events); }), displayFailure);
}

void Demo::note(bool ok, const std::string& failure)
{
    if (!ok && !failed) {
        complain(failure);
        failed = true;
    }
}

} // namespace tools
