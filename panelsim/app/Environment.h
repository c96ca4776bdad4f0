#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace panelsim {

/**
 * @return the library that is loaded into applications ahead of their own: beside this program in a build tree, or
 *         where it is installed
 * @throws std::runtime_error when it is not there or its path cannot be preloaded
 */
std::filesystem::path findPreloadedLibrary();

/**
 * @param library    as findPreloadedLibrary gives it
 * @param pinAddress as the pin server gives it
 * @return this process's environment, with what an application needs to find the simulated pins
 */
std::vector<std::string> environmentFor(const std::filesystem::path& library, const std::string& pinAddress);

} // namespace panelsim
