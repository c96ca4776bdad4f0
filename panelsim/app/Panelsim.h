#pragma once

namespace panelsim {

/**
 * Runs the program: reads the command line, and does what it says. Failures are one line on standard error.
 * @return the exit status
 */
int runPanelsim(int argc, const char* const* argv);

} // namespace panelsim
