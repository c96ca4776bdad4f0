#include "tools/LedCommands.h"

#include "frontpanelhw/fp/FpBase.h"
#include "sysfs/SysfsGpioFactory.h"
#include "tools/UsageError.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace tools {

namespace {

bool isInverted(const Wiring& wiring, unsigned led)
{
    return std::find(wiring.invertedLeds.begin(), wiring.invertedLeds.end(), led) != wiring.invertedLeds.end();
}

void checkLedWiring(const Wiring& wiring)
{
    UsedLines used;
    used.leds = true;
    checkWiring(wiring, used);
}

/** Brings a run of LEDs to one level. Their pins start at it, so that no LED takes another one on the way. */
void switchRun(const Wiring& wiring, unsigned first, unsigned count, bool on)
{
    std::vector<unsigned> inverted;
    std::vector<unsigned> initiallyOn;
    for (unsigned i = 0; i < count; ++i) {
        if (isInverted(wiring, first + i)) {
            inverted.push_back(i);
        }
        if (on) {
            initiallyOn.push_back(i);
        }
    }
    sysfs::SysfsGpioFactory factory;
    frontpanelhw::fp::FpBase leds(factory, wiring.keyBase, 0, wiring.ledBase + first, count, inverted, initiallyOn);
    for (unsigned i = 0; i < count; ++i) {
        // What a pin answered to its initial level is not known, hence once more.
        if (!leds.setLed(i, on)) {
            throw std::runtime_error("LED " + std::to_string(first + i) + " on GPIO " +
                                     std::to_string(wiring.ledBase + first + i) + " did not take its level");
        }
    }
}

} // namespace

void switchLed(const Wiring& wiring, unsigned led, bool on)
{
    checkLedWiring(wiring);
    if (led >= wiring.ledCount()) {
        throw UsageError("there is no LED " + std::to_string(led) + ", the panel has " +
                         std::to_string(wiring.ledCount()));
    }
    switchRun(wiring, led, 1, on);
}

void switchAllLeds(const Wiring& wiring, bool on)
{
    checkLedWiring(wiring);
    switchRun(wiring, 0, wiring.ledCount(), on);
}

} // namespace tools
