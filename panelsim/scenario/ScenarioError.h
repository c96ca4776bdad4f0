#pragma once

#include <stdexcept>

namespace panelsim {

/** A scenario that cannot be played. The text is one line: file, line, column and what is wrong there. */
class ScenarioError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace panelsim
