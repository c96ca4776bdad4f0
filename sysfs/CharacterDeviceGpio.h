#pragma once

#include "sysfs/GpioChips.h"
#include "sysfs/IHeldGpio.h"
#include "sysfs/ISystemCalls.h"

#include <memory>

namespace sysfs {

/**
 * Requests a GPIO line, with the direction and level that it has, from the character device of its chip. That needs
 * Linux 5.10.
 *
 * Reading a level and configuring take one system call each. So does setting a level, unless the output has it already:
 * while a line is requested, the kernel lets nobody else change it. After the release, the chip's driver decides which
 * direction and level the line has.
 * @param calls      has to outlive the line
 * @param gpioNumber for error texts
 * @throws std::system_error with EBUSY for a line in use, EEXIST for one that is exported in /sys/class/gpio
 */
std::unique_ptr<IHeldGpio> exportCharacterDeviceGpio(ISystemCalls& calls, const GpioLine& line, unsigned gpioNumber);

} // namespace sysfs
