#pragma once

#include "sysfs/ISystemCalls.h"

#include <cstddef>
#include <string>
#include <sys/types.h>
#include <vector>

namespace sysfs {

/** The system calls of the running kernel. */
class SystemCalls final : public ISystemCalls {
public:
    /** @return the one instance of the process, usable at any time, also while static objects are destroyed */
    static SystemCalls& instance() noexcept;

    int open(const char* path, int flags) override;
    int close(int descriptor) override;
    ssize_t pread(int descriptor, void* buffer, std::size_t size, off_t offset) override;
    ssize_t pwrite(int descriptor, const void* data, std::size_t size, off_t offset) override;
    int flock(int descriptor, int operation) override;
    int access(const char* path, int mode) override;
    int ioctl(int descriptor, unsigned long request, void* argument) override;
    std::vector<std::string> list(const char* directory) override;
    TimePoint now() override;
    void sleepFor(std::chrono::milliseconds duration) override;

private:
    SystemCalls() = default;
};

} // namespace sysfs
