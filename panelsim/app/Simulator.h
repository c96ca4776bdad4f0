#pragma once

#include "panelsim/app/Options.h"
#include "panelsim/scenario/Scenario.h"

#include <optional>

namespace panelsim {

/** Exit statuses of the program, besides the application's and those of ScenarioResult. */
namespace exitStatus {

constexpr int passed = 0;
constexpr int usageFailure = 2; ///< an option or a file is wrong, or something is not available
constexpr int timeout = 42;
constexpr int signalBase = 128; ///< added to the number of a signal, as shells do

} // namespace exitStatus

/**
 * Runs an application in front of a simulated panel, until the user or it is done.
 * @return the exit status
 * @throws std::exception when a file, a port or anything else is not available, or the application cannot be started
 */
int simulate(const Options& options, const std::optional<Scenario>& scenario);

} // namespace panelsim
