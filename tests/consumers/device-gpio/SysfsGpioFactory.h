#pragma once

#include "ISysfsGpio.h"

#include <memory>

namespace sysfs {

class ISysfsGpioFactory {
public:
    virtual ~ISysfsGpioFactory() = default;
    virtual std::unique_ptr<ISysfsGpio> create() const = 0;
};

class SysfsGpioFactory : public ISysfsGpioFactory {
public:
    std::unique_ptr<ISysfsGpio> create() const override;
};

} // namespace sysfs
