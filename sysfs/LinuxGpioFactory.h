#pragma once

#include "sysfs/ISysfsGpio.h"
#include "sysfs/ISysfsGpioFactory.h"
#include "sysfs/ISystemCalls.h"

#include <memory>
#include <string>

namespace sysfs {

/** Makes pins on any root directory and system calls. */
class LinuxGpioFactory final : public ISysfsGpioFactory {
public:
    /** @param calls has to outlive the factory and its pins */
    LinuxGpioFactory(std::string root, ISystemCalls& calls);

    std::unique_ptr<ISysfsGpio> create() const override;

private:
    std::string root_;
    ISystemCalls& calls_;
};

} // namespace sysfs
