#include "tools/Commands.h"

#include "frontpanelhw/handler/GpioVectorCreator.h"
#include "sysfs/SysfsGpioFactory.h"
#include "tools/Output.h"
#include "tools/Panel.h"
#include "tools/UsageError.h"

#include <algorithm>
#include <stdexcept>

namespace tools {

namespace {

/** @return the chip's label, which another boot leaves as it is, or its name where the label does not single it out */
std::string designationOf(const sysfs::GpioChip& chip, const std::vector<sysfs::GpioChip>& chips)
{
    const auto hasLabel = [&chip](const sysfs::GpioChip& other) { return other.label == chip.label; };
    const bool canBeRead = !chip.label.empty() && chip.label.find('#') == std::string::npos;
    return canBeRead && std::count_if(chips.begin(), chips.end(), hasLabel) == 1 ? chip.label : chip.name;
}

} // namespace

void printDetectedPanel(Wiring wiring)
{
    wiring.panel = &panelKinds.front();
    printLine(resolvePanel(wiring, 0).panel->name);
}

std::string describeChips(const std::vector<sysfs::GpioChip>& chips)
{
    std::string text = "# first number, chip";
    for (const sysfs::GpioChip& chip : chips) {
        text += "\n";
        if (chip.base) {
            const std::string designation = designationOf(chip, chips);
            const unsigned last = *chip.base + std::max(chip.lines, 1U) - 1;
            text += (designation.empty() ? "# " : "") + std::to_string(*chip.base) + " " + designation + " # to " +
                    std::to_string(last) + " by " + chip.source;
        } else {
            text += "# no numbers";
        }
        text += ": " + (chip.name.empty() ? "not found in /dev" : chip.name) + ", label '" + chip.label + "', " +
                (chip.lines == 0 ? "cannot be read" : std::to_string(chip.lines) + " lines");
    }
    return text;
}

void switchLeds(const Wiring& wiring, std::optional<unsigned> led, bool on)
{
    checkWiring(wiring, LedLines);
    if (led) {
        requireLed(wiring, "N", *led);
    }
    const sysfs::SysfsGpioFactory factory;
    unsigned index = led.value_or(0);
    frontpanelhw::handler::GpioVectorCreator pins(factory, wiring.ledBase + index, led ? 1 : wiring.ledCount());
    for (const auto& pin : pins.createOnlyExported()) {
        // A pin starts at the level, so that the LED does not show the other one in between.
        const bool isInverted = std::count(wiring.invertedLeds.begin(), wiring.invertedLeds.end(), index) != 0;
        if (!pin->init(isInverted, sysfs::PinDirectionEn::Output, on)) {
            throw std::runtime_error(ledFailure(wiring, index));
        }
        ++index;
    }
}

void printPage(Wiring wiring, const frontpanelhw::drawing::DisplayBuffer& page, std::optional<unsigned> contrast)
{
    wiring = resolvePanel(wiring, DisplayLines);
    if (!wiring.panel->hasDisplay) {
        throw UsageError(std::string("the ") + wiring.panel->name + " panel has no display");
    }
    // Without keys and LEDs, the backlight is on the number of the first LED.
    wiring.ledBase = static_cast<unsigned>(wiring.backlight());
    wiring.givenKeyCount = wiring.givenLedCount = 0;
    wiring.ledsOn.clear();
    Panel panel(wiring);
    if (!panel.show(page) || (contrast && !panel.withDisplay()->setContrast(*contrast))) {
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
