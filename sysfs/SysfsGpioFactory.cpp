#include "sysfs/SysfsGpioFactory.h"

#include "sysfs/LinuxGpio.h"
#include "sysfs/SystemCalls.h"

namespace sysfs {

std::unique_ptr<ISysfsGpio> SysfsGpioFactory::create() const
{
    return std::make_unique<LinuxGpio>("/sys/class/gpio", SystemCalls::instance());
}

} // namespace sysfs
