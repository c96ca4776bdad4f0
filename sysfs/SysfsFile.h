#pragma once

#include "sysfs/ISystemCalls.h"

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <system_error>

namespace sysfs {

/**
 * A file of the kernel's GPIO interface, open as long as the object lives.
 *
 * Reading and writing take one system call each, more only when a signal interrupts it. What fails throws
 * std::system_error with the errno value and a text that names the GPIO, the path and, where known, the cause.
 */
class SysfsFile {
public:
    /**
     * Opens an existing file.
     * @param gpioNumber the GPIO on whose behalf the file is used, for error texts
     * @param flags      O_RDONLY, O_WRONLY or O_RDWR
     * @param patience   how long to wait for a file that is missing or closed to us; it is tried once at least
     */
    SysfsFile(ISystemCalls& calls, unsigned gpioNumber, std::string path, int flags,
              std::chrono::milliseconds patience = std::chrono::milliseconds::zero());
    ~SysfsFile();

    SysfsFile(const SysfsFile&) = delete;
    SysfsFile& operator=(const SysfsFile&) = delete;

    static bool exists(ISystemCalls& calls, const std::string& path);

    /** Writes all of text at the start of the file. */
    void write(std::string_view text) const;

    /** @return what the kernel shows as 0 or 1 at the start of the file */
    bool readLevel() const;

    /**
     * Takes the file for this object alone, until it is closed or the process ends, however it ends.
     * @return false when another object or process holds it; true also where files cannot be locked
     */
    bool tryLock() const;

    /**
     * @param action what failed: "open", "read", "write" or "lock"
     * @param hint   the cause; without it, what the errno value is known to mean here
     */
    std::system_error error(std::string_view action, int errnoValue, std::string_view hint = {}) const;

private:
    // Out of line, so that a call which succeeds does not prepare for them.
    [[noreturn, gnu::cold, gnu::noinline]] void failToWrite(ssize_t written, std::size_t size) const;
    [[noreturn, gnu::cold, gnu::noinline]] void failToRead(ssize_t size) const;

    ISystemCalls& calls_;
    unsigned gpioNumber_;
    std::string path_;
    int descriptor_;
};

} // namespace sysfs
