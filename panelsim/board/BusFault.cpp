#include "panelsim/board/BusFault.h"

namespace panelsim {

namespace {

const char* nameOf(BusFault::Kind kind)
{
    switch (kind) {
    case BusFault::Kind::DataChanged:
        return "data or register select changed during a strobe";
    case BusFault::Kind::BothStrobes:
        return "read and write strobe asserted at once";
    case BusFault::Kind::ShortStrobe:
        return "strobe too short";
    case BusFault::Kind::ChipSelectMoved:
        return "chip select changed during a strobe";
    case BusFault::Kind::AccessDuringReset:
        return "access while the chip is held in reset";
    case BusFault::Kind::Contention:
        return "processor and chip drive the data lines at once";
    }
    return "unknown bus fault";
}

} // namespace

std::string describe(const BusFault& fault)
{
    return std::string(nameOf(fault.kind)) + " at " + std::to_string(fault.time.count()) + " ns";
}

} // namespace panelsim
