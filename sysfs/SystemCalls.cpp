#include "sysfs/SystemCalls.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <thread>
#include <type_traits>
#include <unistd.h>

namespace sysfs {

static_assert(std::is_trivially_destructible_v<SystemCalls>, "the instance must survive the end of main");

SystemCalls& SystemCalls::instance() noexcept
{
    static SystemCalls calls;
    return calls;
}

int SystemCalls::open(const char* path, int flags)
{
    return ::open(path, flags);
}

int SystemCalls::close(int descriptor)
{
    return ::close(descriptor);
}

ssize_t SystemCalls::pread(int descriptor, void* buffer, std::size_t size, off_t offset)
{
    return ::pread(descriptor, buffer, size, offset);
}

ssize_t SystemCalls::pwrite(int descriptor, const void* data, std::size_t size, off_t offset)
{
    return ::pwrite(descriptor, data, size, offset);
}

int SystemCalls::flock(int descriptor, int operation)
{
    return ::flock(descriptor, operation);
}

int SystemCalls::access(const char* path, int mode)
{
    return ::access(path, mode);
}

int SystemCalls::ioctl(int descriptor, unsigned long request, void* argument)
{
    return ::ioctl(descriptor, request, argument);
}

std::vector<std::string> SystemCalls::list(const char* directory)
{
    std::vector<std::string> names;
    if (DIR* const stream = opendir(directory)) {
        // readdir of 32-bit systems fails on entries with numbers or places of 64 bits.
        while (const dirent64* const entry = readdir64(stream)) {
            names.emplace_back(entry->d_name);
        }
        closedir(stream);
    }
    return names;
}

SystemCalls::TimePoint SystemCalls::now()
{
    return std::chrono::steady_clock::now();
}

void SystemCalls::sleepFor(std::chrono::milliseconds duration)
{
    std::this_thread::sleep_for(duration);
}

} // namespace sysfs
