#include "tools/Descriptor.h"

#include <cerrno>
#include <system_error>
#include <unistd.h>

namespace tools {

Descriptor::Descriptor(int opened, const char* what) : descriptor(opened)
{
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

Descriptor::~Descriptor()
{
    close(descriptor);
}

} // namespace tools
