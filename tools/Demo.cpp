#include "tools/Demo.h"

#include "frontpanelhw/handler/KeyEventQueue.h"
#include "tools/Keys.h"
#include "tools/Output.h"
#include "tools/Panel.h"

#include <string>
#include <utility>

namespace tools {

namespace {

using frontpanelhw::handler::KeyAction;
using frontpanelhw::handler::KeyEvent;

constexpr const char* displayFailure = "the display failed";

std::string sentence(const KeyEvent& event)
{
    const std::string key = "Key " + std::to_string(event.key);
    if (event.action == KeyAction::Repeated) {
        return key + " held (" + std::to_string(event.repeats) + (event.repeats == 1 ? " repeat)" : " repeats)");
    }
    return key + (event.action == KeyAction::Pressed ? " pressed" : " released");
}

class Demo {
public:
    Demo(Wiring resolved, Interrupt& itsInterrupt) : wiring(std::move(resolved)), interrupt(itsInterrupt), panel(wiring)
    {
    }

    bool play(const DemoTimes& times)
    {
        note(panel.testLamps(times.lampTest, interrupt), displayFailure);
        std::optional<Interrupt::Clock::time_point> deadline;
        if (times.afterLampTest) {
            deadline = Interrupt::Clock::now() + std::chrono::seconds(*times.afterLampTest);
        }
        panel.keysAndLeds().connectAnyKeyChangedCb(reportTo(interrupt, events.callback()));
        panel.keysAndLeds().start(false, 0);
        showPage();
        while (interrupt.wait(deadline)) {
            // A page takes longer than a poll of the keys: only the last of several events is shown, but LEDs see all.
            while (const auto event = events.next(std::chrono::milliseconds(0))) {
                apply(*event);
            }
            showPage();
        }
        // Before stop, which does not return while the polling thread is blocked in writing to a pipe.
        for (unsigned led = 0; led < wiring.ledCount(); ++led) {
            panel.keysAndLeds().setLed(led, false);
        }
        note(panel.show(blankPage()), displayFailure);
        panel.keysAndLeds().stop();
        return !failed;
    }

private:
    void apply(const KeyEvent& event)
    {
        ++eventCount;
        lastEvent = sentence(event);
        if (event.key < wiring.ledCount()) {
            note(panel.keysAndLeds().setLed(event.key, event.action != KeyAction::Released),
                 "LED " + std::to_string(event.key) + " on GPIO " + std::to_string(wiring.ledBase + event.key) +
                     " did not take its level");
        }
    }

    void showPage()
    {
        auto page = blankPage();
        const std::string texts[displayLines] = {" Front panel", lastEvent, "Events: " + std::to_string(eventCount)};
        for (unsigned line = 0; line < displayLines; ++line) {
            page.setLineContent(line, std::u16string(texts[line].begin(), texts[line].end()).substr(0, displayChars));
        }
        page.setInverted(0, true, 0, displayChars - 1);
        note(panel.show(page), displayFailure);
    }

    void note(bool ok, const std::string& failure)
    {
        if (!ok && !failed) {
            complain(failure);
            failed = true;
        }
    }

    const Wiring wiring;
    Interrupt& interrupt;
    frontpanelhw::handler::KeyEventQueue events;
    Panel panel;
    unsigned eventCount = 0;
    std::string lastEvent = "Press a key";
    bool failed = false;
};

} // namespace

bool runDemo(const Wiring& given, const DemoTimes& times, Interrupt& interrupt)
{
    const Wiring wiring = resolvePanel(given, PanelLines);
    requireReadable(wiring.keyBase, wiring.keyCount());
    return Demo(wiring, interrupt).play(times);
}

} // namespace tools
