#include "panelsim/board/LcdBus.h"

#include <cstddef>

namespace panelsim {

namespace {

constexpr std::size_t faultsKept = 100;

bool selected(const LcdLevels& levels)
{
    return !levels.chipSelect;
}

} // namespace

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
        ++changes;
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
        const bool known = lcdChip.identified();
        driven = lcdChip.read(levels.registerSelect);
        changes += known != lcdChip.identified();
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
    if (driven && levels.dataDriven != 0) {
        report(BusFault::Kind::Contention, now);
    }
}

void LcdBus::endCycle(std::chrono::nanoseconds now)
{
    if (now - strobeStart < shortestStrobe) {
        report(BusFault::Kind::ShortStrobe, now);
    }
    if (writing && !spoilt && !silent) {
        lcdChip.write(last.registerSelect, last.data);
        ++changes;
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
    ++changes;
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
