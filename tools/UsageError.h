#pragma once

#include <stdexcept>

namespace tools {

/** The command line is wrong; the text is one line. */
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace tools
