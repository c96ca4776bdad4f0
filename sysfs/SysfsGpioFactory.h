#pragma once

#include "sysfs/Export.h"
#include "sysfs/ISysfsGpioFactory.h"

#include <memory>

namespace sysfs {

/**
 * The platform's pins: GPIO lines of the kernel, by its character device or /sys/class/gpio.
 *
 * The class has no data, and create is its only operation that is not defined here: whatever library provides it
 * (this one, a device's own, a simulated panel) serves a program that is already built.
 */
class SYSFSGPIO_EXPORT SysfsGpioFactory : public ISysfsGpioFactory {
public:
    std::unique_ptr<ISysfsGpio> create() const override;
};

} // namespace sysfs
