#include "tools/Wiring.h"

#include "frontpanelhw/FrontPanelType.h"
#include "frontpanelhw/handler/GpioVectorCreator.h"
#include "sysfs/PinDirectionEn.h"
#include "sysfs/SysfsGpioFactory.h"
#include "tools/UsageError.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

namespace tools {

namespace {

constexpr unsigned idLineCount = 4;
constexpr unsigned lcdLineCount = 13;
constexpr unsigned indoorKeyCount = 3;
constexpr unsigned indoorLedCount = 8;
constexpr unsigned outdoorKeyCount = 2;
constexpr unsigned outdoorLedCount = 8;

/** Lines of consecutive GPIO numbers that serve one purpose. */
struct Run {
    std::string purpose;
    std::uint64_t first;
    std::uint64_t count;

    std::uint64_t end() const { return first + count; }
    std::string text() const
    {
        return purpose + " (GPIO " + std::to_string(first) + (count > 1 ? " to " + std::to_string(end() - 1) : "") +
               ")";
    }
};

std::vector<Run> runsOf(const Wiring& wiring, const UsedLines& used)
{
    const Run leds{"LEDs", wiring.ledBase, wiring.ledCount()};
    std::vector<Run> runs;
    if (used.ids) {
        runs.push_back({"ID lines", wiring.idBase, idLineCount});
    }
    if (used.keys) {
        runs.push_back({"keys", wiring.keyBase, wiring.keyCount()});
    }
    if (used.leds) {
        runs.push_back(leds);
    }
    if (used.display && wiring.panel == Wiring::Panel::Indoor) {
        runs.push_back({"backlight", leds.end(), 1});
        runs.push_back({"LCD lines", wiring.lcdBase, lcdLineCount});
    }
    return runs;
}

void checkRange(const Run& run)
{
    constexpr unsigned highest = std::numeric_limits<unsigned>::max();
    if (run.count != 0 && run.end() - 1 > highest) {
        throw UsageError(run.text() + ": the highest GPIO number is " + std::to_string(highest));
    }
}

void checkOverlap(const Run& a, const Run& b)
{
    const auto first = std::max(a.first, b.first);
    if (first < std::min(a.end(), b.end())) {
        throw UsageError(a.text() + " and " + b.text() + " overlap at GPIO " + std::to_string(first));
    }
}

void checkRuns(const std::vector<Run>& runs)
{
    for (auto run = runs.begin(); run != runs.end(); ++run) {
        checkRange(*run);
        std::for_each(runs.begin(), run, [run](const Run& earlier) { checkOverlap(earlier, *run); });
    }
}

void checkOutdoor(const Wiring& wiring)
{
    if (wiring.keyCount() != outdoorKeyCount) {
        throw UsageError("--key-count: the outdoor panel has " + std::to_string(outdoorKeyCount) + " keys");
    }
    if (wiring.ledCount() != outdoorLedCount) {
        throw UsageError("--led-count: the outdoor panel has " + std::to_string(outdoorLedCount) + " LEDs");
    }
    if (!wiring.invertedLeds.empty()) {
        throw UsageError("--inverted-leds: the outdoor panel's LEDs are all active-high");
    }
    if (!wiring.ledsOn.empty()) {
        throw UsageError("--leds-on: the outdoor panel's LEDs are all off at start");
    }
}

void checkLeds(const Wiring& wiring)
{
    const unsigned count = wiring.ledCount();
    const std::uint64_t backlight = std::uint64_t{wiring.ledBase} + count;
    for (const unsigned led : wiring.invertedLeds) {
        if (led >= count && led != backlight) {
            throw UsageError("--inverted-leds: " + std::to_string(led) + " is neither one of the " +
                             std::to_string(count) + " LEDs nor the backlight's GPIO " + std::to_string(backlight));
        }
    }
    for (const unsigned led : wiring.ledsOn) {
        if (led >= count) {
            throw UsageError("--leds-on: there is no LED " + std::to_string(led) + ", the panel has " +
                             std::to_string(count));
        }
    }
}

Wiring withPanel(const Wiring& wiring, Wiring::Panel panel)
{
    Wiring result = wiring;
    result.panel = panel;
    return result;
}

/** Refuses what is wrong whichever panel the ID lines will show. */
void checkBeforeDetection(const Wiring& wiring, const UsedLines& used)
{
    try {
        checkWiring(withPanel(wiring, Wiring::Panel::Indoor), used);
    } catch (const UsageError&) {
        try {
            checkWiring(withPanel(wiring, Wiring::Panel::Outdoor), used);
            return;
        } catch (const UsageError&) {
            // The indoor panel allows more, so that its complaint is the one that helps.
        }
        throw;
    }
}

Wiring::Panel detectPanel(unsigned idBase)
{
    requireReadable(idBase, idLineCount);
    sysfs::SysfsGpioFactory factory;
    switch (frontpanelhw::detectType(factory, idBase)) {
    case frontpanelhw::FrontPanelType::Indoor:
        return Wiring::Panel::Indoor;
    case frontpanelhw::FrontPanelType::Outdoor:
        return Wiring::Panel::Outdoor;
    case frontpanelhw::FrontPanelType::Unknown:
        break;
    }
    throw std::runtime_error(Run{"ID lines", idBase, idLineCount}.text() + " show no known panel");
}

} // namespace

unsigned Wiring::keyCount() const
{
    return givenKeyCount.value_or(panel == Panel::Outdoor ? outdoorKeyCount : indoorKeyCount);
}

unsigned Wiring::ledCount() const
{
    return givenLedCount.value_or(panel == Panel::Outdoor ? outdoorLedCount : indoorLedCount);
}

void checkWiring(const Wiring& wiring, const UsedLines& used)
{
    if (wiring.panel == Wiring::Panel::Outdoor) {
        checkOutdoor(wiring);
    } else {
        checkLeds(wiring);
    }
    checkRuns(runsOf(wiring, used));
}

Wiring resolvePanel(const Wiring& wiring, const UsedLines& used)
{
    if (wiring.panel != Wiring::Panel::Auto) {
        checkWiring(wiring, used);
        return wiring;
    }
    UsedLines usedInAll = used;
    usedInAll.ids = true;
    checkBeforeDetection(wiring, usedInAll);
    Wiring resolved = withPanel(wiring, detectPanel(wiring.idBase));
    checkWiring(resolved, usedInAll);
    return resolved;
}

void requireReadable(unsigned firstGpio, unsigned count)
{
    const sysfs::SysfsGpioFactory factory;
    frontpanelhw::handler::GpioVectorCreator lines(factory, firstGpio, count);
    for (const auto& line : lines.createAndInit(false, sysfs::PinDirectionEn::Input, false)) {
        line->getValue();
    }
}

} // namespace tools
