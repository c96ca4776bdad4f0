#pragma once

#include "sysfs/GpioChips.h"

#include <string>
#include <vector>

namespace tools {

/** @return the chips as lines of a file that gives them the numbers they have; comments say what else is known */
std::string describeChips(const std::vector<sysfs::GpioChip>& chips);

/** Prints the GPIO chips of this device. */
void listChips();

} // namespace tools
