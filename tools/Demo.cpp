#include "tools/Demo.h"

#include "tools/Keys.h"
#include "tools/Page.h"
#include "tools/Panel.h"

#include <stdexcept>
#include <string>

namespace tools {

namespace {

using frontpanelhw::drawing::Align;
using frontpanelhw::handler::KeyAction;
using frontpanelhw::handler::KeyEvent;

std::string sentence(const KeyEvent& event)
{
    const std::string key = "Key " + std::to_string(event.key);
    if (event.action == KeyAction::Repeated) {
        return key + " held (repeat " + std::to_string(event.repeats) + ")";
    }
    return key + (event.action == KeyAction::Pressed ? " pressed" : " released");
}

frontpanelhw::drawing::DisplayBuffer pageOf(const std::string& lastEvent, unsigned eventCount)
{
    auto page = blankPage();
    writeLine(page, 0, " Front panel", Align::Left);
    writeLine(page, 1, lastEvent.substr(0, displayChars), Align::Left);
    writeLine(page, 2, "Events: " + std::to_string(eventCount), Align::Left);
    page.setInverted(0, true, 0, displayChars - 1);
    return page;
}

} // namespace

void runDemo(Wiring wiring, unsigned lampSeconds, std::optional<unsigned> seconds, Interrupt& interrupt)
{
    wiring = resolvePanel(wiring, PanelLines);
    requireReadable(wiring.keyBase, wiring.keyCount());
    frontpanelhw::handler::KeyEventQueue events;
    Panel panel(wiring);
    auto& keysAndLeds = panel.keysAndLeds();
    std::string failure;
    const auto note = [&failure](bool ok, const std::string& text) {
        failure = ok || !failure.empty() ? failure : text;
    };
    const std::string displayFailure = "the display failed";

    note(panel.testLamps(lampSeconds, interrupt), displayFailure);
    std::optional<Interrupt::Clock::time_point> deadline;
    if (seconds) {
        deadline = Interrupt::Clock::now() + std::chrono::seconds(*seconds);
    }
    keysAndLeds.connectAnyKeyChangedCb(printAndPass(events, interrupt));
    keysAndLeds.start(false, 0);
    std::string lastEvent = "Press a key";
    unsigned eventCount = 0;
    do {
        // A page takes longer than a poll of the keys: only the last of several events is shown, but LEDs see all.
        while (const auto event = events.next(std::chrono::milliseconds(0))) {
            ++eventCount;
            lastEvent = sentence(*event);
            if (event->key < wiring.ledCount()) {
                note(keysAndLeds.setLed(event->key, event->action != KeyAction::Released),
                     ledFailure(wiring, event->key));
            }
        }
        note(panel.show(pageOf(lastEvent, eventCount)), displayFailure);
    } while (interrupt.wait(deadline, events.descriptor()));

    // Before stop, which does not return while the polling thread is blocked in writing to a pipe.
    for (unsigned led = 0; led < wiring.ledCount(); ++led) {
        keysAndLeds.setLed(led, false);
    }
    note(panel.show(blankPage()), displayFailure);
    keysAndLeds.stop();
    if (!failure.empty()) {
        throw std::runtime_error(failure);
    }
}

} // namespace tools
