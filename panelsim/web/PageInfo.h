#pragma once

#include <string>

namespace panelsim {

/** What the page says about the program, and does not change. */
struct PageInfo {
    std::string version; ///< of the program
    std::string panel;   ///< "indoor" or "outdoor"
    std::string command; ///< the application and its arguments
};

} // namespace panelsim
