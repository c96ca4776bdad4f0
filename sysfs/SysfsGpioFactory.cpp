#include "sysfs/SysfsGpioFactory.h"

#include "sysfs/ExportGpio.h"
#include "sysfs/KernelGpio.h"
#include "sysfs/SystemCalls.h"

namespace sysfs {

std::unique_ptr<ISysfsGpio> SysfsGpioFactory::create() const
{
    return std::make_unique<KernelGpio>(
        [](unsigned gpioNumber) { return sysfs::exportGpio(SystemCalls::instance(), gpioNumber); });
}

} // namespace sysfs
