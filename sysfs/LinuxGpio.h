#pragma once

#include "sysfs/IHeldGpio.h"
#include "sysfs/ISystemCalls.h"

#include <memory>
#include <string>

namespace sysfs {

/**
 * Takes a GPIO line exclusively in the kernel's sysfs interface. Waits up to one second per file for udev to grant
 * access.
 *
 * A line that is exported already, by a process that ended without cleaning up or by a script at boot, keeps its
 * settings and stays exported. Setting or reading a level and configuring take one system call each.
 * @param calls        has to outlive the line
 * @param directory    of the interface, /sys/class/gpio unless it is mounted elsewhere
 * @param gpioNumber   for error texts
 * @param kernelNumber of the line in the interface
 * @throws std::system_error with EBUSY for a line that another process or object drives
 */
std::unique_ptr<IHeldGpio> exportLinuxGpio(ISystemCalls& calls, const std::string& directory, unsigned gpioNumber,
                                           unsigned kernelNumber);

} // namespace sysfs
