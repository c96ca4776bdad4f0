#pragma once

#include "sysfs/ISystemCalls.h"

#include <chrono>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <system_error>

namespace sysfs {

/**
 * @param action what failed: "open" or "set", say
 * @param object path of a file, or a line
 * @param hint   the cause; without it, what the errno value is known to mean here
 */
std::system_error gpioError(unsigned gpioNumber, std::string_view action, const std::string& object, int errnoValue,
                            std::string_view hint = {});

/**
 * A file of one of the kernel's GPIO interfaces, or a line that was requested from a chip, open as long as the object
 * lives.
 *
 * Reading and writing take one system call each, more only when a signal interrupts it. What fails throws
 * std::system_error with the errno value and a text that names the GPIO, the path and, where known, the cause.
 */
class GpioFile {
public:
    /**
     * Opens an existing file.
     * @param systemCalls has to outlive the object
     * @param number      of the GPIO, for error texts
     * @param flags       O_RDONLY, O_WRONLY or O_RDWR
     * @param patience    how long to wait for a file that is missing or not yet accessible; it is tried at least once
     */
    GpioFile(ISystemCalls& systemCalls, unsigned number, std::string filePath, int flags,
             std::chrono::milliseconds patience = std::chrono::milliseconds::zero());

    struct Opened {
        int descriptor;
    };

    /** Takes over an open descriptor. @param name of what it is, for error texts */
    GpioFile(ISystemCalls& systemCalls, unsigned number, std::string name, Opened opened);

    ~GpioFile();

    GpioFile(const GpioFile&) = delete;
    GpioFile& operator=(const GpioFile&) = delete;

    static bool exists(ISystemCalls& calls, const std::string& path);

    /** @return whether the ioctl succeeded; otherwise the reason is in errno */
    bool tryControl(unsigned long request, void* argument) const;

    /** @param action what the ioctl does, for the error text */
    void control(unsigned long request, void* argument, const char* action) const
    {
        if (!tryControl(request, argument)) {
            fail(action);
        }
    }

    /** @throws std::system_error always: the action failed for the reason in errno */
    [[noreturn]] void fail(const char* action) const;

    /** Writes all of text at the start of the file. */
    void write(std::string_view text) const;

    /** @return the level: the file starts with 0 or 1 */
    bool readLevel() const;

    /**
     * Locks the file exclusively, until it is closed or the process ends.
     * @return false when another object or process holds the lock; true also where files cannot be locked
     */
    bool tryLock() const;

    /** @return gpioError for this file */
    std::system_error error(std::string_view action, int errnoValue, std::string_view hint = {}) const;

private:
    // A function of its own, so that a call that succeeds does not prepare for it.
    [[noreturn]] void failToRead(ssize_t size) const;

    ISystemCalls& calls;
    unsigned gpioNumber;
    std::string path;
    int descriptor;
};

} // namespace sysfs
