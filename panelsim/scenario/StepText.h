#pragma once

#include "panelsim/scenario/Scenario.h"

#include <string>

namespace panelsim {

/** @return what follows the name of the step: "key 0", or what is expected: "LED 3 to be on within 5 s" */
std::string describe(const StepAction& action);

} // namespace panelsim
