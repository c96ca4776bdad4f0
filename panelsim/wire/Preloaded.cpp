/*
 * What panelsim loads into an application ahead of its libraries: the platform's pin factory, with pins on the board
 * in the panelsim process.
 */
#include "panelsim/wire/RemoteGpio.h"
#include "sysfs/SysfsGpioFactory.h"

#include <cstdio>
#include <memory>

namespace {

/**
 * Standard output is a pipe to panelsim, which the application would fill with several kilobytes before any of it is
 * seen. Line by line, as at a terminal, a waiting person or scenario sees each line when it is written.
 */
__attribute__((constructor)) void writeOutputByLines()
{
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
}

} // namespace

std::unique_ptr<sysfs::ISysfsGpio> sysfs::SysfsGpioFactory::create() const
{
    return std::make_unique<panelsim::RemoteGpio>();
}
