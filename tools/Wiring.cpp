#include "tools/Wiring.h"

#include "frontpanelhw/handler/GpioVectorCreator.h"
#include "sysfs/PinDirectionEn.h"
#include "sysfs/SysfsGpioFactory.h"
#include "tools/UsageError.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace tools {

namespace {

constexpr unsigned idLineCount = 4;
constexpr unsigned lcdLineCount = 13;

/** Lines of consecutive GPIO numbers that serve one purpose; none where they are not in use. */
struct Run {
    std::string purpose;
    std::uint64_t first;
    std::uint64_t count;

    std::uint64_t end() const { return first + count; }
    std::string text() const
    {
        const std::string last = count > 1 ? " to " + std::to_string(end() - 1) : "";
        return purpose + " (GPIO " + std::to_string(first) + last + ")";
    }
};

void checkRuns(const Wiring& wiring, unsigned linesInUse)
{
    constexpr unsigned highest = std::numeric_limits<unsigned>::max();
    const auto inUse = [linesInUse](Lines lines, unsigned count) { return (linesInUse & lines) != 0 ? count : 0; };
    const bool display = wiring.panel->hasDisplay;
    const Run runs[] = {
        {"ID lines", wiring.idBase, inUse(IdLines, idLineCount)},
        {"keys", wiring.keyBase, inUse(KeyLines, wiring.keyCount())},
        {"LEDs", wiring.ledBase, inUse(LedLines, wiring.ledCount())},
        {"backlight", wiring.backlight(), inUse(DisplayLines, display ? 1 : 0)},
        {"LCD lines", wiring.lcdBase, inUse(DisplayLines, display ? lcdLineCount : 0)},
    };
    for (const Run* run = std::begin(runs); run != std::end(runs); ++run) {
        if (run->count != 0 && run->end() - 1 > highest) {
            throw UsageError(run->text() + ": the highest GPIO number is " + std::to_string(highest));
        }
        for (const Run* earlier = std::begin(runs); earlier != run; ++earlier) {
            const auto first = std::max(earlier->first, run->first);
            if (first < std::min(earlier->end(), run->end())) {
                throw UsageError(earlier->text() + " and " + run->text() + " overlap at GPIO " + std::to_string(first));
            }
        }
    }
}

std::string ledIndexes(const Wiring& wiring)
{
    return wiring.ledCount() == 0 ? "none" : "0 to " + std::to_string(wiring.ledCount() - 1);
}

const PanelKind& detectPanel(unsigned idBase)
{
    requireReadable(idBase, idLineCount);
    sysfs::SysfsGpioFactory factory;
    const auto shown = frontpanelhw::detectType(factory, idBase);
    const auto isShown = [shown](const PanelKind& kind) { return kind.type == shown; };
    const auto* const kind = std::find_if(std::next(panelKinds.begin()), panelKinds.end(), isShown);
    if (kind == panelKinds.end()) {
        throw std::runtime_error(Run{"ID lines", idBase, idLineCount}.text() + " show no known panel");
    }
    return *kind;
}

} // namespace

void requireLed(const Wiring& wiring, const std::string& option, unsigned led)
{
    if (led >= wiring.ledCount()) {
        throw UsageError(option + ": there is no LED " + std::to_string(led) + ", the panel has " + ledIndexes(wiring));
    }
}

std::string ledFailure(const Wiring& wiring, unsigned led)
{
    return "LED " + std::to_string(led) + " on GPIO " + std::to_string(wiring.ledBase + led) +
           " did not take its level";
}

void checkWiring(const Wiring& wiring, unsigned linesInUse)
{
    const PanelKind& kind = *wiring.panel;
    if (kind.isFixed && (wiring.keyCount() != kind.keyCount || wiring.ledCount() != kind.ledCount ||
                         !wiring.invertedLeds.empty() || !wiring.ledsOn.empty())) {
        throw UsageError(std::string("the ") + kind.name + " panel has " + std::to_string(kind.keyCount) +
                         " keys and " + std::to_string(kind.ledCount) + " LEDs, all active-high and off at start");
    }
    for (const unsigned led : wiring.invertedLeds) {
        if (led >= wiring.ledCount() && led != wiring.backlight()) {
            throw UsageError("--inverted-leds: " + std::to_string(led) + " is neither an LED (" + ledIndexes(wiring) +
                             ") nor the backlight's GPIO " + std::to_string(wiring.backlight()));
        }
    }
    for (const unsigned led : wiring.ledsOn) {
        requireLed(wiring, "--leds-on", led);
    }
    checkRuns(wiring, linesInUse);
}

Wiring resolvePanel(Wiring wiring, unsigned linesInUse)
{
    if (wiring.panel == &panelKinds.front()) {
        linesInUse |= IdLines;
        checkWiring(wiring, linesInUse);
        wiring.panel = &detectPanel(wiring.idBase);
    }
    checkWiring(wiring, linesInUse);
    return wiring;
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
