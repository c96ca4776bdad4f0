#include "tools/Commands.h"

#include "frontpanelhw/fp/FpBase.h"
#include "sysfs/SysfsGpioFactory.h"
#include "tools/Output.h"
#include "tools/Panel.h"
#include "tools/UsageError.h"

#include <algorithm>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace tools {

namespace {

/** Brings a run of LEDs to one level. Their pins start at it, so that no LED shows the other one in between. */
void switchRun(const Wiring& wiring, unsigned first, unsigned count, bool on)
{
    std::vector<unsigned> inverted;
    std::vector<unsigned> initiallyOn;
    for (unsigned i = 0; i < count; ++i) {
        if (std::count(wiring.invertedLeds.begin(), wiring.invertedLeds.end(), first + i) != 0) {
            inverted.push_back(i);
        }
        if (on) {
            initiallyOn.push_back(i);
        }
    }
    sysfs::SysfsGpioFactory factory;
    frontpanelhw::fp::FpBase leds(factory, wiring.keyBase, 0, wiring.ledBase + first, count, inverted, initiallyOn);
    for (unsigned i = 0; i < count; ++i) {
        // The constructor does not report whether a pin accepted its initial level, hence once more.
        if (!leds.setLed(i, on)) {
            throw std::runtime_error("LED " + std::to_string(first + i) + " on GPIO " +
                                     std::to_string(wiring.ledBase + first + i) + " did not take its level");
        }
    }
}

std::string noDisplay(const Wiring& wiring)
{
    return std::string("the ") + wiring.kind().name + " panel has no display";
}

} // namespace

void printDetectedPanel(Wiring wiring, bool quiet)
{
    wiring.panel = nullptr;
    std::cout.setstate(quiet ? std::ios::failbit : std::ios::goodbit); // which the library logs to
    const char* const name = resolvePanel(wiring, 0).kind().name;
    std::cout.clear();
    printLine(name);
}

void switchLed(const Wiring& wiring, unsigned led, bool on)
{
    checkWiring(wiring, LedLines);
    if (led >= wiring.ledCount()) {
        throw UsageError(noLed(wiring, led));
    }
    switchRun(wiring, led, 1, on);
}

void switchAllLeds(const Wiring& wiring, bool on)
{
    checkWiring(wiring, LedLines);
    switchRun(wiring, 0, wiring.ledCount(), on);
}

void printPage(Wiring wiring, const frontpanelhw::drawing::DisplayBuffer& page, std::optional<unsigned> contrast)
{
    if (!wiring.kind().hasDisplay) {
        throw UsageError(noDisplay(wiring));
    }
    wiring = resolvePanel(wiring, DisplayLines);
    if (!wiring.kind().hasDisplay) {
        throw std::runtime_error(noDisplay(wiring));
    }
    // Without keys and LEDs, the backlight is on the number of the first LED.
    wiring.ledBase = wiring.backlight();
    wiring.givenKeyCount = wiring.givenLedCount = 0;
    wiring.ledsOn.clear();
    Panel panel(wiring);
    if (!panel.show(page) || (contrast && !panel.setContrast(*contrast))) {
        throw std::runtime_error("the display failed to show the text");
    }
}

void runLampTest(const Wiring& wiring, unsigned seconds, Interrupt& interrupt)
{
    Panel panel(resolvePanel(wiring, PanelLines));
    if (!panel.testLamps(seconds, interrupt)) {
        throw std::runtime_error("the display failed during the lamp test");
    }
}

} // namespace tools
