#include "sysfs/LinuxGpioFactory.h"

#include "sysfs/LinuxGpio.h"

#include <utility>

namespace sysfs {

LinuxGpioFactory::LinuxGpioFactory(std::string directory, ISystemCalls& systemCalls)
    : root(std::move(directory)), calls(systemCalls)
{
}

std::unique_ptr<ISysfsGpio> LinuxGpioFactory::create() const
{
    return std::make_unique<LinuxGpio>(root, calls);
}

} // namespace sysfs
