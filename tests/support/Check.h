#pragma once

#include <stdexcept>
#include <string>

/** @throws std::logic_error that names what does not hold */
inline void check(bool holds, const std::string& what)
{
    if (!holds) {
        throw std::logic_error("does not hold: " + what);
    }
}
