#include "panelsim/board/FileDescriptor.h"

#include <cerrno>
#include <system_error>
#include <unistd.h>

namespace panelsim {

FileDescriptor::FileDescriptor(int opened, const char* what) : descriptor(opened)
{
    if (opened < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept
{
    if (this != &other) {
        close();
        descriptor = std::exchange(other.descriptor, -1);
    }
    return *this;
}

void FileDescriptor::close() noexcept
{
    if (descriptor >= 0) {
        ::close(std::exchange(descriptor, -1));
    }
}

} // namespace panelsim
