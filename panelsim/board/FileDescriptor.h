#pragma once

#include <utility>

namespace panelsim {

/** Owns an open file. */
class FileDescriptor {
public:
    FileDescriptor() = default;
    /** @param opened what a system call returned @throws std::system_error when it failed, with that text */
    FileDescriptor(int opened, const char* what);
    ~FileDescriptor() { close(); }

    FileDescriptor(FileDescriptor&& other) noexcept : descriptor(std::exchange(other.descriptor, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;

    int get() const { return descriptor; }
    void close() noexcept;

private:
    int descriptor = -1;
};

} // namespace panelsim
