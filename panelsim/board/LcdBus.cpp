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
    if (strobe != nullptr) {
        checkMoves(levels, now);
        checkStates(levels, now);
        if (!selected(levels) || levels.*strobe) {
            endCycle(now);
        }
    }
    if (!levels.reset && last.reset) {
        lcdChip.reset();
    }
    if (strobe == nullptr && selected(levels) && (!levels.writeStrobe || !levels.readStrobe)) {
        beginCycle(levels, now);
        checkStates(levels, now);
    }
    last = levels;
}

void LcdBus::beginCycle(const LcdLevels& levels, std::chrono::nanoseconds now)
{
    strobe = levels.writeStrobe ? &LcdLevels::readStrobe : &LcdLevels::writeStrobe;
    strobeStart = now;
    reportedInCycle.clear();
    if (!(last.*strobe) && !selected(last)) {
        report(BusFault::Kind::ChipSelectMoved, now);
    }
    if (strobe == &LcdLevels::readStrobe && levels.reset && !silent) {
        driven = lcdChip.read(levels.registerSelect);
    }
}

void LcdBus::checkMoves(const LcdLevels& levels, std::chrono::nanoseconds now)
{
    const bool dataMoved =
        strobe == &LcdLevels::writeStrobe && (levels.data != last.data || levels.dataDriven != last.dataDriven);
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
    const bool isSpoilt = reportedInCycle.count(BusFault::Kind::BothStrobes) != 0 ||
                          reportedInCycle.count(BusFault::Kind::AccessDuringReset) != 0;
    if (strobe == &LcdLevels::writeStrobe && !isSpoilt && !silent) {
        lcdChip.write(last.registerSelect, static_cast<unsigned char>(last.data.to_ulong()));
    }
    strobe = nullptr;
    driven.reset();
}

void LcdBus::report(BusFault::Kind kind, std::chrono::nanoseconds now)
{
    // Once in a cycle: eight data lines that move one after the other are one fault.
    if (reportedInCycle.insert(kind).second && ++allFaults <= faultsKept) {
        firstFaults.push_back({kind, now});
    }
}

void LcdBus::clearFaults()
{
    firstFaults.clear();
    allFaults = 0;
}

} // namespace panelsim
