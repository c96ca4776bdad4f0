#include "sysfs/LinuxGpioFactory.h"

#include "sysfs/LinuxGpio.h"

#include <utility>

namespace sysfs {

LinuxGpioFactory::LinuxGpioFactory(std::string root, ISystemCalls& calls) : root_(std::move(root)), calls_(calls)
{
}

std::unique_ptr<ISysfsGpio> LinuxGpioFactory::create() const
{
    return std::make_unique<LinuxGpio>(root_, calls_);
}

} // namespace sysfs
