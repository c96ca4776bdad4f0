#pragma once

#include "sysfs/ISysfsGpioFactory.h"

/** While it lives, sysfs::SysfsGpioFactory makes the pins of another factory, which outlives it. One at a time. */
class InstalledPins {
public:
    explicit InstalledPins(const sysfs::ISysfsGpioFactory& factory);
    ~InstalledPins();
    InstalledPins(const InstalledPins&) = delete;
    InstalledPins& operator=(const InstalledPins&) = delete;
};
