// A panel's life, whole and with one operation of a pin failing, which the input chooses.
#include "tests/lab/PanelLab.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <numeric>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const std::string_view script(reinterpret_cast<const char*>(bytes), size);
    try {
        const std::uint64_t operations = livePanel(script).operations;
        const std::uint64_t choice =
            std::accumulate(bytes, bytes + size, std::uint64_t{1},
                            [](std::uint64_t sum, std::uint8_t byte) { return sum * 31 + byte; });
        livePanel(script,
                  {1 + choice / 8 % operations, static_cast<PinFailure::Kind>(choice % 4), choice / 4 % 2 == 1});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "fuzz: %s\n", error.what());
        std::abort();
    }
    return 0;
}
