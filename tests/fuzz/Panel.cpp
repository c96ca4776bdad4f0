// A panel's life, whole and with one operation of a pin failing, which the input chooses.
#include "tests/lab/PanelLab.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const std::string script(reinterpret_cast<const char*>(bytes), size);
    const std::uint64_t operations = livePanel(script).operations;
    const std::size_t choice = std::hash<std::string>()(script);
    livePanel(script, {1 + choice / 8 % operations, static_cast<PinFailure::Kind>(choice % 4), choice / 4 % 2 == 1});
    return 0;
}
