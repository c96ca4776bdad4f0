#pragma once

/** What the program exits with, unless the status is the application's. */
namespace panelsim::exitStatus {

constexpr int passed = 0;
constexpr int stepFailed = 1;         ///< of a scenario
constexpr int usageFailure = 2;       ///< an option or a file is wrong, or something is not available
constexpr int applicationFailure = 3; ///< while a scenario was played or when it was over
constexpr int timeout = 42;
constexpr int signalBase = 128; ///< added to the number of a signal, as shells do

} // namespace panelsim::exitStatus
