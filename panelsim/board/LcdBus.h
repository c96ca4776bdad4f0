#pragma once

#include "panelsim/board/LcdChip.h"

#include <bitset>
#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

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

/** Electrical levels of the LCD's bus and reset lines, as the processor drives them; the control lines idle high. */
struct LcdLevels {
    std::bitset<8> data = {};       ///< of the lines that the processor drives; 0 for the others
    std::bitset<8> dataDriven = {}; ///< which data lines the processor drives
    bool registerSelect = false;
    bool chipSelect = true;
    bool readStrobe = true;
    bool writeStrobe = true;
    bool reset = true;
};

/** Follows the levels on the LCD's lines and does with the chip what their edges say. */
class LcdBus {
public:
    /**
     * @param shortestStrobe shortest strobe that is no fault
     * @param silentChip     whether the chip neither takes nor answers anything
     */
    LcdBus(ChipVariant variant, std::chrono::nanoseconds shortestStrobe, bool silentChip = false);

    /** Takes note that the levels are these from now on. */
    void update(const LcdLevels& levels, std::chrono::nanoseconds now);

    /** @return the byte that the chip drives onto the data lines, empty while it does not */
    std::optional<unsigned char> drivenByte() const { return driven; }

    const LcdChip& chip() const { return lcdChip; }

    /** @return the first faults since the start or since they were cleared */
    const std::vector<BusFault>& faults() const { return firstFaults; }

    /** @return the number of faults since the start or since they were cleared */
    std::uint64_t faultCount() const { return allFaults; }

    void clearFaults();

private:
    void beginCycle(const LcdLevels& levels, std::chrono::nanoseconds now);
    void endCycle(std::chrono::nanoseconds now);
    void checkStates(const LcdLevels& levels, std::chrono::nanoseconds now);
    void checkMoves(const LcdLevels& levels, std::chrono::nanoseconds now);
    void report(BusFault::Kind kind, std::chrono::nanoseconds now);

    LcdChip lcdChip;
    std::chrono::nanoseconds shortestStrobe;
    bool silent;
    LcdLevels last;
    bool LcdLevels::*strobe = nullptr; ///< of the cycle that has begun
    std::chrono::nanoseconds strobeStart{0};
    std::set<BusFault::Kind> reportedInCycle;
    std::optional<unsigned char> driven;
    std::vector<BusFault> firstFaults;
    std::uint64_t allFaults = 0;
};

} // namespace panelsim
