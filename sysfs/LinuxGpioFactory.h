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
    /** @param systemCalls has to outlive the factory and its pins */
    LinuxGpioFactory(std::string directory, ISystemCalls& systemCalls);

    std::unique_ptr<ISysfsGpio> create() const override;

private:
    std::string root;
    ISystemCalls& calls;
};

} // namespace sysfs
