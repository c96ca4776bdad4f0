#pragma once

#include "sysfs/Export.h"
#include "sysfs/ISysfsGpio.h"

#include <memory>

namespace sysfs {

/** Makes pins. */
class SYSFSGPIO_EXPORT ISysfsGpioFactory {
public:
    virtual ~ISysfsGpioFactory() = default;

    /** @return a new pin, not yet bound to a GPIO number; never null */
    virtual std::unique_ptr<ISysfsGpio> create() const = 0;
};

} // namespace sysfs
