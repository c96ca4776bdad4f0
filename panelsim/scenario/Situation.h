#pragma once

#include "panelsim/board/Simulation.h"

#include <string>

namespace panelsim {

/** @return what the panel shows and the last lines of the application, as text of several lines to tell of a failure */
std::string describeSituation(const Simulation& simulation);

} // namespace panelsim
