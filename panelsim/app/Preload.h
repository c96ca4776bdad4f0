#pragma once

#include <string>

namespace panelsim {

/**
 * Sets the environment of this process to what an application needs to use simulated pins: the library that is loaded
 * into it ahead of its own, which is beside this program in a build tree or where it is installed, and the address.
 * @param pinAddress as the pin server gives it
 * @throws std::runtime_error when the library is not there or its path cannot be preloaded
 */
void preparePreloading(const std::string& pinAddress);

} // namespace panelsim
