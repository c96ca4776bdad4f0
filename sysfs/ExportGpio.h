#pragma once

#include "sysfs/IHeldGpio.h"
#include "sysfs/ISystemCalls.h"

#include <memory>

namespace sysfs {

/**
 * Makes a GPIO line of the kernel available by one of its two interfaces.
 *
 * It is the character device. Where that is not available, or the line is exported already, it is /sys/class/gpio.
 * The environment variable SYSFSGPIO_BACKEND=chardev or sysfs chooses by force.
 * @param calls has to outlive the line
 * @throws std::system_error when neither interface makes the line available, with the reasons of both
 */
std::unique_ptr<IHeldGpio> exportGpio(ISystemCalls& calls, unsigned gpioNumber);

} // namespace sysfs
