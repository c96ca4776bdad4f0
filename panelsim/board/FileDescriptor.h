#pragma once

#include <cerrno>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace panelsim {

/** Owns an open file. */
class FileDescriptor {
public:
    FileDescriptor() = default;
    /** @param opened what a system call returned @throws std::system_error with that text when it failed */
    FileDescriptor(int opened, const char* what) : descriptor(opened)
    {
        if (opened < 0) {
            throw std::system_error(errno, std::generic_category(), what);
        }
    }
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor(std::exchange(other.descriptor, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        std::swap(descriptor, other.descriptor);
        return *this;
    }
    ~FileDescriptor() { close(); }

    int get() const { return descriptor; }
    void close() noexcept
    {
        if (descriptor >= 0) {
            ::close(std::exchange(descriptor, -1));
        }
    }

private:
    int descriptor = -1;
};

} // namespace panelsim
