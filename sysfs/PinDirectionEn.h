#pragma once

namespace sysfs {

/** Direction of a GPIO line, seen from the processor. */
enum class PinDirectionEn {
    Input = 0, ///< somebody else drives the line
    Output = 1 ///< the processor drives the line
};

} // namespace sysfs
