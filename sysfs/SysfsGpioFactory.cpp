#include "sysfs/SysfsGpioFactory.h"

#include "sysfs/KernelGpio.h"
#include "sysfs/SystemCalls.h"

namespace sysfs {

std::unique_ptr<ISysfsGpio> SysfsGpioFactory::create() const
{
    return std::make_unique<KernelGpio>(SystemCalls::instance());
}

} // namespace sysfs
