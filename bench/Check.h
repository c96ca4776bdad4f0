#pragma once

#include <cerrno>
#include <system_error>

namespace bench {

/** @param ok whether a call succeeded @param what its name @throws std::system_error of errno when it did not */
inline void check(bool ok, const char* what)
{
    if (!ok) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

} // namespace bench
