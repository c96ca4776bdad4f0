#include "tools/ChipsCommand.h"

#include "sysfs/SystemCalls.h"
#include "tools/Output.h"

#include <algorithm>

namespace tools {

namespace {

/** @return the chip's label, which another boot leaves as it is, or its name where the label does not single it out */
std::string designationOf(const sysfs::GpioChip& chip, const std::vector<sysfs::GpioChip>& chips)
{
    const auto hasLabel = [&chip](const sysfs::GpioChip& other) { return other.label == chip.label; };
    const bool canBeRead = !chip.label.empty() && chip.label.find('#') == std::string::npos;
    return canBeRead && std::count_if(chips.begin(), chips.end(), hasLabel) == 1 ? chip.label : chip.name;
}

std::string describe(const sysfs::GpioChip& chip, const std::vector<sysfs::GpioChip>& chips)
{
    const std::string designation = designationOf(chip, chips);
    const std::string name = chip.name.empty() ? "not found in /dev" : chip.name;
    const std::string known = name + ", label '" + chip.label + "', " +
                              (chip.lines == 0 ? "cannot be read" : std::to_string(chip.lines) + " lines");
    if (!chip.base) {
        return "# no numbers: " + known + "\n";
    }
    const unsigned last = *chip.base + std::max(chip.lines, 1U) - 1;
    return (designation.empty() ? "# " : "") + std::to_string(*chip.base) + " " + designation + " # to " +
           std::to_string(last) + " by " + chip.source + ": " + known + "\n";
}

} // namespace

std::string describeChips(const std::vector<sysfs::GpioChip>& chips)
{
    std::string text = "# first number, chip\n";
    for (const sysfs::GpioChip& chip : chips) {
        text += describe(chip, chips);
    }
    return text;
}

void listChips()
{
    const std::string text = describeChips(sysfs::readGpioChips(sysfs::SystemCalls::instance()));
    printLine(text.substr(0, text.size() - 1));
}

} // namespace tools
