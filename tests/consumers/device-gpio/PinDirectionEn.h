#pragma once

namespace sysfs {

enum class PinDirectionEn { Input, Output };

} // namespace sysfs
