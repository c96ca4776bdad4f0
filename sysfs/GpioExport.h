#pragma once

#include "sysfs/ISystemCalls.h"

#include <string>

namespace sysfs {

/**
 * A GPIO made available in the kernel's interface for as long as the object lives.
 *
 * A GPIO that is exported already, by a process that ended without cleaning up or by a script at boot, keeps its
 * settings and stays exported. The object unexports only what it exported itself.
 */
class GpioExport {
public:
    /**
     * @param systemCalls and directory have to outlive the object
     * @param number       for error texts
     * @param kernelNumber of the GPIO in the kernel's interface
     * @throws std::system_error when the GPIO is not available
     */
    GpioExport(ISystemCalls& systemCalls, const std::string& directory, unsigned number, unsigned kernelNumber);

    /** Unexports the GPIO. A failure is not reported. */
    ~GpioExport();

    GpioExport(const GpioExport&) = delete;
    GpioExport& operator=(const GpioExport&) = delete;

    /**
     * Unexports the GPIO before the destructor, which then does nothing, also after a failure.
     * @throws std::system_error when the kernel refuses
     */
    void release();

    /** Leaves the GPIO exported. */
    void abandon() noexcept;

private:
    ISystemCalls& calls;
    const std::string& root;
    unsigned gpioNumber;
    std::string name;
    bool owned = false;
};

} // namespace sysfs
