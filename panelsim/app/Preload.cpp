#include "panelsim/app/Preload.h"

#include "panelsim/wire/Protocol.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace panelsim {

namespace {

std::string findLibrary()
{
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    for (const auto& directory : {program, program / PANELSIM_PRELOAD_DIRECTORY}) {
        std::error_code missing;
        const std::string library = std::filesystem::canonical(directory / "libpanelsim-gpio.so", missing);
        if (!missing && library.find_first_of(" \t\n:") != std::string::npos) {
            throw std::runtime_error("'" + library +
                                     "' cannot be preloaded, since its path has a blank or a colon: move it elsewhere");
        }
        if (!missing) {
            return library;
        }
    }
    throw std::runtime_error("libpanelsim-gpio.so is neither in " + program.string() + " nor in " +
                             (program / PANELSIM_PRELOAD_DIRECTORY).lexically_normal().string() +
                             ": build or install all of panelsim");
}

/** Puts the text before the variable's value, with a separator if it has one. */
void prepend(const char* variable, const std::string& text)
{
    const char* const value = std::getenv(variable);
    const bool isEmpty = value == nullptr || *value == '\0';
    setenv(variable, (isEmpty ? text : text + ":" + value).c_str(), 1);
}

} // namespace

void preparePreloading(const std::string& pinAddress)
{
    prepend("LD_PRELOAD", findLibrary());
    // The address sanitizer wants to be the first library of an application built with it, which it cannot be now.
    prepend("ASAN_OPTIONS", "verify_asan_link_order=0");
    setenv(socketVariable, pinAddress.c_str(), 1);
}

} // namespace panelsim
