#include "panelsim/board/LcdBus.h"

#include <cstddef>
#include <iterator>

namespace panelsim {

namespace {

constexpr std::size_t faultsKept = 100;

constexpr const char* faultNames[] = {"data or register select changed during a strobe",
                                      "read and write strobe asserted at once",
                                      "strobe too short",
                                      "chip select changed during a strobe",
                                      "access while the chip is held in reset",
                                      "processor and chip drive the data lines at once"};
static_assert(std::size(faultNames) == static_cast<std::size_t>(BusFault::Kind::Contention) + 1,
              "a name for each kind");

bool selected(const LcdLevels& levels)
{
    return !levels.chipSelect;
}

} // namespace

std::string describe(const BusFault& fault)
{
    return std::string(faultNames[static_cast<std::size_t>(fault.kind)]) + " at " + std::to_string(fault.time.count()) +
           " ns";
}

LcdBus::LcdBus(ChipVariant variant, std::chrono::nanoseconds shortest, bool silentChip)
    : lcdChip(variant), shortestStrobe(shortest), silent(silentChip)
{
}

void LcdBus::update(const LcdLevels& levels, std::chrono::nanoseconds now)
{
    const bool goesOn = selected(levels) && !(writing ? levels.writeStrobe : levels.readStrobe);
    if (strobed()) {
        checkMoves(levels, now);
        checkStates(levels, now);
        if (!goesOn) {
            endCycle(now);
        }
    }
    if (!levels.reset && last.reset) {
        lcdChip.reset();
    }
    if (!strobed() && selected(levels) && (!levels.writeStrobe || !levels.readStrobe)) {
        beginCycle(levels, now);
        checkStates(levels, now);
    }
    last = levels;
}

void LcdBus::beginCycle(const LcdLevels& levels, std::chrono::nanoseconds now)
{
    writing = !levels.writeStrobe;
    reading = !writing;
    strobeStart = now;
    spoilt = false;
    reportedInCycle = 0;
    const bool strobeWasThereFirst = !(writing ? last.writeStrobe : last.readStrobe);
    if (strobeWasThereFirst && !selected(last)) {
        report(BusFault::Kind::ChipSelectMoved, now);
    }
    if (reading && levels.reset && !silent) {
        driven = lcdChip.read(levels.registerSelect);
    }
}

void LcdBus::checkMoves(const LcdLevels& levels, std::chrono::nanoseconds now)
{
    const bool dataMoved = writing && (levels.data != last.data || levels.dataDriven != last.dataDriven);
    if (dataMoved || levels.registerSelect != last.registerSelect) {
        report(BusFault::Kind::DataChanged, now);
    }
    if (!selected(levels)) {
        report(BusFault::Kind::ChipSelectMoved, now);
    }
}

void LcdBus::checkStates(const LcdLevels& levels, std::chrono::nanoseconds now)
{
    if (!levels.readStrobe && !levels.writeStrobe) {
        report(BusFault::Kind::BothStrobes, now);
    }
    if (!levels.reset) {
        report(BusFault::Kind::AccessDuringReset, now);
    }
    if (driven && levels.dataDriven.any()) {
        report(BusFault::Kind::Contention, now);
    }
}

void LcdBus::endCycle(std::chrono::nanoseconds now)
{
    if (now - strobeStart < shortestStrobe) {
        report(BusFault::Kind::ShortStrobe, now);
    }
    if (writing && !spoilt && !silent) {
        lcdChip.write(last.registerSelect, static_cast<unsigned char>(last.data.to_ulong()));
    }
    writing = false;
    reading = false;
    driven.reset();
}

void LcdBus::report(BusFault::Kind kind, std::chrono::nanoseconds now)
{
    // Once in a cycle: eight data lines that move one after the other are one fault.
    const unsigned bit = 1U << static_cast<unsigned>(kind);
    if ((reportedInCycle & bit) != 0) {
        return;
    }
    reportedInCycle |= bit;
    spoilt |= kind == BusFault::Kind::BothStrobes || kind == BusFault::Kind::AccessDuringReset;
    ++allFaults;
    if (firstFaults.size() < faultsKept) {
        firstFaults.push_back({kind, now});
    }
}

void LcdBus::clearFaults()
{
    firstFaults.clear();
    allFaults = 0;
}

} // namespace panelsim
