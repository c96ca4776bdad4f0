#pragma once

#include <stdexcept>

namespace panelsim {

/** The user asks for something that cannot be; the text is one line. */
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace panelsim
