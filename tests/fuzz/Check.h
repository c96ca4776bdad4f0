#pragma once

#include <cstdio>
#include <cstdlib>

/** Ends the process with a line on standard error when something does not hold, which libFuzzer reports as a crash. */
inline void check(bool holds, const char* what)
{
    if (!holds) {
        std::fprintf(stderr, "fuzz: does not hold: %s\n", what);
        std::abort();
    }
}
