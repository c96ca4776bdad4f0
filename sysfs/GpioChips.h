#pragma once

#include "sysfs/ISystemCalls.h"

#include <optional>
#include <string>
#include <vector>

namespace sysfs {

/** A GPIO chip of the running kernel. */
struct GpioChip {
    std::string name; ///< in /dev; empty for a chip of /sys/class/gpio that is not known to be one of /dev
    std::string label;
    unsigned lines = 0;                ///< 0 when unknown, since the chip may not be read
    std::optional<unsigned> sysfsBase; ///< number of its first line in /sys/class/gpio
    std::optional<unsigned> base;      ///< number of its first line for applications
    std::string source;                ///< where base comes from
    std::string candidates;            ///< chips of /dev that a chip without a name may be, "gpiochip0 or gpiochip1"
};

/** A line of a chip. */
struct GpioLine {
    GpioChip chip;
    unsigned offset;
};

/**
 * Reads which chips there are and which numbers their lines have.
 *
 * The numbers come from the file /etc/sysfsgpio.conf, or the one that the environment variable SYSFSGPIO_CONFIG names.
 * Without a file they are those of /sys/class/gpio. Without these they count from 0 through the chips of /dev.
 * @throws std::system_error for a file that cannot be read or has a wrong line
 */
std::vector<GpioChip> readGpioChips(ISystemCalls& calls);

/** @return the line that has this number @throws std::system_error when there is none, or as readGpioChips does */
GpioLine findGpioLine(ISystemCalls& calls, unsigned gpioNumber);

} // namespace sysfs
