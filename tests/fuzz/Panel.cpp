// A panel's life, whole and with one operation of a pin failing, which the input chooses.
#include "tests/fuzz/Check.h"
#include "tests/lab/PanelLab.h"

#include <numeric>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const std::string_view script(reinterpret_cast<const char*>(bytes), size);
    const std::uint64_t operations = livePanel(script).operations;
    const std::uint64_t choice = std::accumulate(bytes, bytes + size, std::uint64_t{1},
                                                 [](std::uint64_t sum, std::uint8_t byte) { return sum * 31 + byte; });
    livePanel(script, {1 + choice / 8 % operations, static_cast<PinFailure::Kind>(choice % 4), choice / 4 % 2 == 1});
    return 0;
}
