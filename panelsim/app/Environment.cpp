#include "panelsim/app/Environment.h"

#include "panelsim/wire/Protocol.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace panelsim {

namespace {

void setVariable(std::vector<std::string>& environment, const std::string& name, const std::string& value)
{
    const std::string start = name + "=";
    const auto isOld = [&](const std::string& entry) { return entry.compare(0, start.size(), start) == 0; };
    environment.erase(std::remove_if(environment.begin(), environment.end(), isOld), environment.end());
    environment.push_back(start + value);
}

/** @return the variable's value after the text, and a separator if it has one */
std::string before(const std::string& text, const char* variable)
{
    const char* const value = std::getenv(variable);
    return value == nullptr || *value == '\0' ? text : text + ":" + value;
}

} // namespace

std::filesystem::path findPreloadedLibrary()
{
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    for (const auto& directory : {program, program / PANELSIM_PRELOAD_DIRECTORY}) {
        std::error_code ignored;
        auto library = std::filesystem::canonical(directory / "libpanelsim-gpio.so", ignored);
        if (library.empty()) {
            continue;
        }
        if (library.string().find_first_of(" \t\n:") != std::string::npos) {
            throw std::runtime_error("'" + library.string() +
                                     "' cannot be preloaded, since its path has a blank or a colon: move it elsewhere");
        }
        return library;
    }
    throw std::runtime_error("libpanelsim-gpio.so is neither in " + program.string() + " nor in " +
                             (program / PANELSIM_PRELOAD_DIRECTORY).lexically_normal().string() +
                             ": build or install all of panelsim");
}

std::vector<std::string> environmentFor(const std::filesystem::path& library, const std::string& pinAddress)
{
    std::vector<std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        environment.emplace_back(*entry);
    }
    setVariable(environment, "LD_PRELOAD", before(library.string(), "LD_PRELOAD"));
    setVariable(environment, socketVariable, pinAddress);
    // The address sanitizer wants to be the first library of an application built with it, which it cannot be now.
    setVariable(environment, "ASAN_OPTIONS", before("verify_asan_link_order=0", "ASAN_OPTIONS"));
    return environment;
}

} // namespace panelsim
