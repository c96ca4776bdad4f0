#pragma once

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <string>
#include <sys/types.h>
#include <vector>

namespace sysfs {

/**
 * The system calls this layer makes, gathered so that each of them can be made to fail.
 *
 * They behave like the POSIX calls of the same name: a negative result means failure, with the reason in errno.
 */
class ISystemCalls {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual int open(const char* path, int flags) = 0;
    virtual int close(int descriptor) = 0;
    virtual ssize_t pread(int descriptor, void* buffer, std::size_t size, off_t offset) = 0;
    virtual ssize_t pwrite(int descriptor, const void* data, std::size_t size, off_t offset) = 0;
    virtual int flock(int descriptor, int operation) = 0;
    virtual int access(const char* path, int mode) = 0;
    virtual int ioctl(int descriptor, unsigned long request, void* argument) = 0;

    /** @return names of the directory's entries, in any order; none if it cannot be read */
    virtual std::vector<std::string> list(const char* directory) = 0;

    /** @return the time of a clock that never goes back */
    virtual TimePoint now() = 0;

    virtual void sleepFor(std::chrono::milliseconds duration) = 0;

protected:
    // No implementation is deleted through this interface. Without a virtual destructor the real one needs no
    // destruction at exit, so that it outlives every static pin.
    ~ISystemCalls() = default;
};

/** @return what the call returns when no signal interrupts it */
template <typename SystemCall>
auto uninterrupted(SystemCall call)
{
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

} // namespace sysfs
