#pragma once

#include "sysfs/ISystemCalls.h"

#include <string>

namespace sysfs {

/**
 * A GPIO made available in the kernel's interface for as long as the object lives.
 *
 * A GPIO that is exported already, by a process that ended without cleaning up or by a script at boot, is taken
 * as it is and stays exported: the object takes back what it exported itself, and only that.
 */
class GpioExport {
public:
    /** @throws std::system_error when the GPIO is not available */
    GpioExport(ISystemCalls& calls, const std::string& root, unsigned gpioNumber);

    /** Takes the export back; a failure to do so goes unreported. */
    ~GpioExport();

    GpioExport(const GpioExport&) = delete;
    GpioExport& operator=(const GpioExport&) = delete;

    /**
     * Takes the export back ahead of the destructor, which then does nothing, also after a failure.
     * @throws std::system_error when the kernel refuses
     */
    void release();

    /** Leaves the GPIO exported. */
    void abandon() noexcept;

private:
    ISystemCalls& calls_;
    const std::string& root_;
    unsigned gpioNumber_;
    bool owned_ = false;
};

} // namespace sysfs
