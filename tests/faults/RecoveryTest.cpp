#include "tests/faults/BusDecoder.h"
#include "tests/faults/FaultyPins.h"
#include "tests/faults/PanelLife.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using frontpanelhw::drawing::DisplayBuffer;
using panelsim::ChipVariant;
using panelsim::PinOperation;
using FaultKind = FaultPlan::Kind;

namespace {

constexpr unsigned columns = 25;
constexpr unsigned lcdGpioBase = 40;
constexpr unsigned dataLineCount = 8;
constexpr unsigned backlightGpio = 28;
const std::string inversionRegister = "register '16'";

using Registers = std::array<unsigned char, 256>;

Registers registersOf(const panelsim::Board& board)
{
    Registers registers{};
    for (unsigned reg = 0; reg < registers.size(); ++reg) {
        registers.at(reg) = board.lcdRegister(static_cast<unsigned char>(reg));
    }
    return registers;
}

/** Pages change places at each print: whichever is shown, the other one is written. */
bool sameRegisters(const Registers& after, Registers wanted)
{
    const unsigned char page = after[0x12];
    wanted[0x12] = page == 0xA1 || page == 0x92 ? page : wanted[0x12];
    return after == wanted;
}

/**
 * No operation of ILcdFp gives these registers their start-up values: enable writes 00, a print 12, 60 and 70 and, of
 * 10, the bit of inversion; a clear writes back what it read; a reset gives all of them other values.
 */
bool onlyConstructionHelps(Registers after, Registers wanted)
{
    for (Registers* registers : {&after, &wanted}) {
        for (const unsigned replaced : {0x00U, 0x12U, 0x60U, 0x70U}) {
            registers->at(replaced) = 0;
        }
        registers->at(0x10) &= 0xDFU;
    }
    return after != wanted;
}

/** @return how many of the lines show what the page says */
std::array<bool, 3> shownLines(const panelsim::Board& board, const DisplayBuffer& page)
{
    const panelsim::PanelView view = board.view();
    std::array<bool, 3> right{};
    for (unsigned row = 0; row < right.size(); ++row) {
        right.at(row) = view.lcd->displayOn && view.lcd->backlight;
        for (unsigned column = 0; column < columns; ++column) {
            const auto wanted = page.getLine(row).getCharacter(column);
            const panelsim::LcdCell cell{static_cast<unsigned char>(wanted.character), wanted.inverted};
            right.at(row) = right.at(row) && view.lcd->lines[row][column] == cell;
        }
    }
    return right;
}

bool isShown(const panelsim::Board& board, const DisplayBuffer& page)
{
    return shownLines(board, page) == std::array<bool, 3>{true, true, true};
}

/** What an application may do after a print that failed. */
struct Remedy {
    const char* name;
    bool goesOn; ///< after the remedy before, instead of after the failure
    std::function<bool(PanelLife&, const DisplayBuffer&)> run;
};

bool print(PanelLife& life, const DisplayBuffer& page)
{
    return life.lcd->printBuffer(page);
}

const Remedy remedies[] = {
    {"print", false, print},
    {"print twice", true, print},
    {"print thrice", true, print},
    {"print both inversions, print", false,
     [](PanelLife& life, const DisplayBuffer& page) {
         life.lcd->printBuffer(makePage(columns, u'a', [](unsigned column, unsigned) { return column % 2 == 0; }));
         return print(life, page);
     }},
    {"clear, swap, clear, enable, print", false,
     [](PanelLife& life, const DisplayBuffer& page) {
         life.lcd->clear();
         life.lcd->swapPage();
         life.lcd->clear();
         life.lcd->enable(true);
         return print(life, page);
     }},
    {"reset, enable, print", false,
     [](PanelLife& life, const DisplayBuffer& page) {
         life.lcd->resetController();
         life.lcd->enable(true);
         return print(life, page);
     }},
    {"construct anew, print", false,
     [](PanelLife& life, const DisplayBuffer& page) {
         life.panel.reset();
         life.construct();
         return print(life, page);
     }},
};
constexpr std::size_t remedyCount = std::size(remedies);

/** A page that is printed over another one. */
struct Print {
    DisplayBuffer before;
    DisplayBuffer page;
};

std::vector<Print> prints()
{
    const auto none = [](unsigned, unsigned) { return false; };
    const auto all = [](unsigned, unsigned) { return true; };
    const auto some = [](unsigned column, unsigned line) { return column / 8 == line + 1; };
    return {{makePage(2, u'a', all), makePage(columns, u'0', none)},
            {makePage(2, u'a', none), makePage(columns, u'0', some)},
            {makePage(2, u'a', none), makePage(columns, u'0', all)},
            {makePage(columns, u'0', some), makePage(columns, u'0', some)}};
}

/** What came of the failures of one kind. */
struct Tally {
    unsigned failures = 0;
    unsigned unnoticed = 0;        ///< the print answered true
    unsigned wrong = 0;            ///< of those, the page is not shown, or registers differ
    unsigned beyondOperations = 0; ///< registers differ that only construction writes
    unsigned stuck = 0;            ///< all operations fail, but for the reset, which brings those registers about
    std::array<unsigned, remedyCount> remedied{};
};

class Recovery : public testing::TestWithParam<ChipVariant> {
protected:
    /** A panel that shows the page before, and prints the other one with that failure. */
    struct FailedPrint {
        FailedPrint(const Print& print, FaultPlan plan, bool wantTrace = false)
            : life(lifeBoard(true, GetParam()), {}, wantTrace)
        {
            life.construct();
            life.lcd->printBuffer(print.before);
            callsBefore = life.pins.calls;
            life.output.take();
            plan.first += plan.first == UINT64_MAX ? 0 : callsBefore;
            life.pins.plan = plan;
            try {
                answer = life.lcd->printBuffer(print.page);
            } catch (const ForeignFault&) {
            }
            life.pins.plan = {};
        }

        PanelLife life;
        std::uint64_t callsBefore = 0;
        bool answer = false;
    };

    /** An operation of the print that is to fail. */
    struct Candidate {
        PinCall call;
        bool endsItsLineOnly; ///< it comes before the chip takes notice of a character or of its inversion

        /** Some of the data lines are then inputs, though all of them are taken to be outputs. */
        bool leavesLinesAsInputs() const { return call.operation == PinOperation::SetDirection && !call.value; }
    };

    static std::vector<Candidate> callsToFail(const FailedPrint& clean)
    {
        std::vector<Candidate> calls;
        const auto& trace = clean.life.pins.trace;
        for (const BusAccess& access : decodeBus(trace, GetParam(), lcdGpioBase, backlightGpio)) {
            if (access.first <= clean.callsBefore || access.isLikeOthers) {
                continue;
            }
            bool endsItsLineOnly =
                access.isCharacter || access.failureText.find(inversionRegister) != std::string::npos;
            for (std::uint64_t number = access.first; number <= access.last; ++number) {
                const PinCall& call = trace[number - 1];
                endsItsLineOnly = endsItsLineOnly && call.gpio < lcdGpioBase + dataLineCount;
                calls.push_back({call, endsItsLineOnly && call.operation == PinOperation::SetValue});
            }
        }
        return calls;
    }

    static void fail(const Print& print, const Registers& wanted, const FaultPlan& plan, const Candidate& candidate,
                     Tally& tally)
    {
        std::unique_ptr<FailedPrint> failed;
        for (std::size_t i = 0; i < remedyCount; ++i) {
            if (!remedies[i].goesOn) {
                failed.reset();
                failed = std::make_unique<FailedPrint>(print, plan);
            }
            PanelLife& life = failed->life;
            if (i == 0) {
                const Registers after = registersOf(life.board);
                const bool right = isShown(life.board, print.page) && sameRegisters(after, wanted);
                const auto lines = shownLines(life.board, print.page);
                if (plan.kind == FaultKind::Throws && candidate.endsItsLineOnly) {
                    EXPECT_GE(std::count(lines.begin(), lines.end(), true), 2) << "the other lines are shown";
                }
                ++tally.failures;
                tally.unnoticed += failed->answer ? 1 : 0;
                tally.wrong += failed->answer && !right ? 1 : 0;
                tally.beyondOperations += onlyConstructionHelps(after, wanted) ? 1 : 0;
            }
            life.output.take();
            const bool printed = remedies[i].run(life, print.page);
            tally.remedied.at(i) +=
                printed && isShown(life.board, print.page) && sameRegisters(registersOf(life.board), wanted) ? 1 : 0;
            if (remedies[i].goesOn && !remedies[i + 1].goesOn && !life.lcd->enable(true) && !life.lcd->clear() &&
                !life.lcd->swapPage()) {
                ++tally.stuck;
                EXPECT_TRUE(candidate.leavesLinesAsInputs()) << "operation " << candidate.call.number;
            }
        }
    }
};

void show(const char* chip, const char* kind, const Tally& tally)
{
    std::printf("%s, %s: %u failures; unnoticed %u, then wrong %u; beyond operations %u; stuck %u; shown right after",
                chip, kind, tally.failures, tally.unnoticed, tally.wrong, tally.beyondOperations, tally.stuck);
    for (std::size_t i = 0; i < remedyCount; ++i) {
        std::printf("%s %s %u", i == 0 ? "" : ";", remedies[i].name, tally.remedied.at(i));
    }
    std::printf("\n");
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Chips, Recovery, testing::Values(ChipVariant::Ra8803, ChipVariant::Ra8806),
                         [](const auto& chip) { return chip.param == ChipVariant::Ra8803 ? "Ra8803" : "Ra8806"; });

TEST_P(Recovery, OnlyAPanelConstructedAnewIsCertainToShowThePage)
{
    static const std::pair<FaultKind, const char*> kinds[] = {{FaultKind::Throws, "throws"},
                                                              {FaultKind::ThrowsAfter, "takes effect and throws"},
                                                              {FaultKind::Refuses, "answers false"},
                                                              {FaultKind::Foreign, "application dies"}};
    for (const auto& [kind, words] : kinds) {
        Tally tally;
        for (const Print& print : prints()) {
            const FailedPrint clean(print, {}, true);
            const Registers wanted = registersOf(clean.life.board);
            ASSERT_TRUE(clean.answer && isShown(clean.life.board, print.page));
            const auto calls = callsToFail(clean);
            for (std::size_t i = 0; i < calls.size(); i += RECOVERY_STRIDE) {
                const bool refusable = calls[i].call.operation == PinOperation::SetValue;
                if (kind != FaultKind::Refuses || refusable) {
                    fail(print, wanted, {calls[i].call.number - clean.callsBefore, kind}, calls[i], tally);
                }
            }
        }
        EXPECT_EQ(tally.remedied.back(), tally.failures) << "constructed anew, the panel is right again";
        EXPECT_EQ(tally.unnoticed, kind == FaultKind::Refuses ? tally.failures : 0U);
        // Nothing less does.
        if (kind != FaultKind::Foreign) {
            EXPECT_GT(tally.beyondOperations + tally.stuck, 0U);
            EXPECT_EQ(tally.remedied[remedyCount - 2], 0U) << "a reset takes what construction wrote";
        }
        show(GetParam() == ChipVariant::Ra8803 ? "Ra8803" : "Ra8806", words, tally);
    }
}
