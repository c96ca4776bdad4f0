#pragma once

namespace sysfs {

/** Direction of a GPIO line, seen from the processor. */
enum class PinDirectionEn { Input = 0, Output = 1 };

} // namespace sysfs
