#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

/** What is done with an input: each fuzz target's own. An exception that leaves it ends the process: a finding. */
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

inline void check(bool holds, const std::string& what)
{
    if (!holds) {
        throw std::logic_error("does not hold: " + what);
    }
}
