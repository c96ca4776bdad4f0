#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

/** What is done with an input: each fuzz target's own. */
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

/** Ends the process with a line on standard error when something does not hold, which libFuzzer reports as a crash. */
inline void check(bool holds, const char* what)
{
    if (!holds) {
        std::fprintf(stderr, "fuzz: does not hold: %s\n", what);
        std::abort();
    }
}
