#pragma once

#include <chrono>
#include <string>

namespace panelsim {

/** Something on the LCD bus that a real chip would suffer from. */
struct BusFault {
    enum class Kind {
        DataChanged,       ///< a data line or register select moved during a strobe
        BothStrobes,       ///< read and write strobe asserted at once
        ShortStrobe,       ///< a strobe shorter than the bus takes
        ChipSelectMoved,   ///< chip select moved during a strobe
        AccessDuringReset, ///< a strobe while the chip was held in reset
        Contention         ///< processor and chip drove the data lines at once
    };

    Kind kind;
    std::chrono::nanoseconds time; ///< of the board's clock
};

/** @return one line of text that says what happened and when */
std::string describe(const BusFault& fault);

} // namespace panelsim
