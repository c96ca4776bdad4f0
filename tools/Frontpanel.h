#pragma once

namespace tools {

/**
 * The command line `frontpanel`, on the pins of sysfs::SysfsGpioFactory. It holds no state: a program, such as one
 * on a simulated panel, may call it any number of times, one call at a time.
 *
 * While it runs, the calling thread has the signals that end a command blocked, and SIGPIPE is ignored. Threads that
 * a program started before should block SIGINT and SIGTERM themselves.
 * @return the exit status: 0, 1 for a failure, 2 for a wrong command line
 */
int runFrontpanel(int argc, const char* const* argv);

} // namespace tools
