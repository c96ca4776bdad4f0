#include "tools/Wiring.h"

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

/** Lines of consecutive GPIO numbers that serve one purpose; none where they are not in use. */
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

std::string indexes(unsigned count)
{
    return count == 0 ? "none" : "0 to " + std::to_string(count - 1);
}

void checkRuns(const Wiring& wiring, unsigned linesInUse)
{
    constexpr unsigned highest = std::numeric_limits<unsigned>::max();
    const auto inUse = [linesInUse](Lines lines, unsigned count) { return (linesInUse & lines) != 0 ? count : 0; };
    const bool display = wiring.kind().hasDisplay;
    const Run runs[] = {
        {"ID lines", wiring.idBase, inUse(IdLines, idLineCount)},
        {"keys", wiring.keyBase, inUse(KeyLines, wiring.keyCount())},
        {"LEDs", wiring.ledBase, inUse(LedLines, wiring.ledCount())},
        {"backlight", std::uint64_t{wiring.ledBase} + wiring.ledCount(), inUse(DisplayLines, display ? 1 : 0)},
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

void checkFixed(const Wiring& wiring)
{
    const PanelKind& kind = wiring.kind();
    const std::string panel = std::string("the ") + kind.name + " panel";
    const struct {
        bool broken;
        std::string rule;
    } rules[] = {
        {wiring.keyCount() != kind.keyCount,
         "--key-count: " + panel + " has " + std::to_string(kind.keyCount) + " keys"},
        {wiring.ledCount() != kind.ledCount,
         "--led-count: " + panel + " has " + std::to_string(kind.ledCount) + " LEDs"},
        {!wiring.invertedLeds.empty(), "--inverted-leds: " + panel + "'s LEDs are all active-high"},
        {!wiring.ledsOn.empty(), "--leds-on: " + panel + "'s LEDs are all off at start"},
    };
    for (const auto& [broken, rule] : rules) {
        if (broken) {
            throw UsageError(rule);
        }
    }
}

void checkLeds(const Wiring& wiring)
{
    const unsigned count = wiring.ledCount();
    const std::uint64_t backlight = std::uint64_t{wiring.ledBase} + count;
    for (const unsigned led : wiring.invertedLeds) {
        if (led >= count && led != backlight) {
            throw UsageError("--inverted-leds: " + std::to_string(led) + " is neither an LED (" + indexes(count) +
                             ") nor the backlight's GPIO " + std::to_string(backlight));
        }
    }
    for (const unsigned led : wiring.ledsOn) {
        if (led >= count) {
            throw UsageError("--leds-on: " + noLed(wiring, led));
        }
    }
}

/** Refuses what is wrong for every panel, with the complaint of the first one, which allows most. */
void checkBeforeDetection(Wiring wiring, unsigned linesInUse)
{
    std::optional<UsageError> complaint;
    for (const PanelKind& kind : panelKinds) {
        try {
            wiring.panel = &kind;
            checkWiring(wiring, linesInUse);
            return;
        } catch (const UsageError& error) {
            complaint = complaint.value_or(error);
        }
    }
    throw UsageError(*complaint);
}

const PanelKind* detectPanel(unsigned idBase)
{
    requireReadable(idBase, idLineCount);
    sysfs::SysfsGpioFactory factory;
    const auto type = frontpanelhw::detectType(factory, idBase);
    for (const PanelKind& kind : panelKinds) {
        if (kind.type == type) {
            return &kind;
        }
    }
    throw std::runtime_error(Run{"ID lines", idBase, idLineCount}.text() + " show no known panel");
}

} // namespace

std::string noLed(const Wiring& wiring, unsigned led)
{
    return "there is no LED " + std::to_string(led) + ", the panel has " + indexes(wiring.ledCount());
}

void checkWiring(const Wiring& wiring, unsigned linesInUse)
{
    if (wiring.kind().isFixed) {
        checkFixed(wiring);
    } else {
        checkLeds(wiring);
    }
    checkRuns(wiring, linesInUse);
}

Wiring resolvePanel(const Wiring& wiring, unsigned linesInUse)
{
    Wiring resolved = wiring;
    if (wiring.panel == nullptr) {
        linesInUse |= IdLines;
        checkBeforeDetection(wiring, linesInUse);
        resolved.panel = detectPanel(wiring.idBase);
    }
    checkWiring(resolved, linesInUse);
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
