#include "frontpanelhw/fp/Indoor.h"
#include "frontpanelhw/fp/Outdoor.h"
#include "panelsim/Board.h"
#include "panelsim/BoardGpioFactory.h"
#include "panelsim/InstalledBoard.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FakePins.h"
#include "tests/support/KeyEvents.h"
#include "tests/support/RecordedWaits.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

using namespace frontpanelhw;
using drawing::DisplayBuffer;
using panelsim::Board;
using panelsim::BoardConfig;
using panelsim::ChipVariant;
using panelsim::PanelView;

namespace {

constexpr std::chrono::seconds longEnough(10);

fp::Indoor indoorOn(const BoardConfig& c, const std::vector<unsigned>& ledsOn = {})
{
    std::vector<unsigned> inverted = c.invertedLeds;
    if (c.backlightInverted) {
        inverted.push_back(c.ledGpioBase + c.ledCount);
    }
    return {c.keyGpioBase, c.ledGpioBase, c.lcdGpioBase, c.keyCount, c.ledCount, inverted, ledsOn};
}

/** What the LCD of a board shows, in the form in which it was printed. */
DisplayBuffer shown(const Board& board)
{
    DisplayBuffer page(25, 3);
    const auto lines = board.view().lcd->lines;
    for (unsigned row = 0; row < lines.size(); ++row) {
        for (unsigned column = 0; column < lines[row].size(); ++column) {
            const panelsim::LcdCell& cell = lines[row][column];
            page.setLineContent(row, column, std::u16string(1, cell.code));
            page.setInverted(row, cell.inverted, column, column);
        }
    }
    return page;
}

/** Waits until the view fulfils the condition. */
template <typename Condition>
bool eventually(const Board& board, Condition condition)
{
    const auto deadline = std::chrono::steady_clock::now() + longEnough;
    PanelView view = board.view();
    while (!condition(view)) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        view = board.waitForOtherView(view, std::chrono::milliseconds(100));
    }
    return true;
}

class IndoorOnBoard : public testing::TestWithParam<ChipVariant> {
protected:
    static BoardConfig wiring()
    {
        BoardConfig config;
        config.chip = GetParam();
        config.invertedLeds = {1, 7};
        config.backlightInverted = true;
        return config;
    }
    Board board{wiring()};
    panelsim::InstalledBoard installed{board};
    CapturedOutput output;
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Chips, IndoorOnBoard, testing::Values(ChipVariant::Ra8803, ChipVariant::Ra8806),
                         [](const auto& chip) { return chip.param == ChipVariant::Ra8803 ? "Ra8803" : "Ra8806"; });

TEST_P(IndoorOnBoard, ComesUpEmptyAndLit)
{
    std::vector<unsigned> lit;
    board.observe([&](const panelsim::LineChange& change) {
        const bool inverted = change.gpio == 21 || change.gpio == 27;
        if (change.gpio >= 20 && change.gpio < 28 && change.level != inverted) {
            lit.push_back(change.gpio);
        }
    });
    {
        fp::Indoor panel = indoorOn(board.getConfig(), {0, 1});
        const PanelView view = board.view();
        EXPECT_EQ(view.leds, (std::vector<bool>{true, true, false, false, false, false, false, false}));
        EXPECT_TRUE(view.lcd->displayOn && view.lcd->backlight);
        EXPECT_EQ(view.lcd->contrast, GetParam() == ChipVariant::Ra8803 ? std::optional<unsigned>(15) : std::nullopt);
        EXPECT_EQ(shown(board), DisplayBuffer(25, 3));
        EXPECT_EQ(lit, (std::vector<unsigned>{20, 21})) << "no other LED flashed";
        EXPECT_EQ(panel.getChars(), 25U);
        EXPECT_EQ(panel.getLines(), 3U);
        EXPECT_FALSE(panel.isRunning());
    }
    EXPECT_EQ(output.out(), GetParam() == ChipVariant::Ra8803 ? "INFO: LcdControl c9\nINFO: status register: 1 0x40\n"
                                                              : "INFO: LcdControl 0\nINFO: status register: 1 0x40\n");
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(board.busFaultCount(), 0U);
    EXPECT_EQ(board.claimedLines(), 0U);
    EXPECT_TRUE(board.view().leds[0]) << "destruction leaves LEDs as they are";
}

TEST_P(IndoorOnBoard, ShowsThePagesThatArePrinted)
{
    fp::Indoor panel = indoorOn(board.getConfig());
    DisplayBuffer page(25, 3);
    for (unsigned run = 0; run < 3; ++run) {
        for (unsigned line = 0; line < 3; ++line) {
            for (unsigned column = 0; column < 25; ++column) {
                page.setLineContent(line, column,
                                    std::u16string(1, static_cast<char16_t>(33 + column * 7 + line + run)));
                page.setInverted(line, (column + line + run) % 3 == 0, column, column);
            }
        }
        EXPECT_TRUE(panel.printBuffer(page));
        EXPECT_EQ(shown(board), page);
    }
    EXPECT_TRUE(panel.printLine(1, drawing::DisplayLine(25)));
    EXPECT_EQ(shown(board), page) << "the hidden page is written";
    EXPECT_TRUE(panel.clear() && panel.swapPage());
    EXPECT_EQ(shown(board), DisplayBuffer(25, 3));
    EXPECT_TRUE(panel.enable(false));
    EXPECT_FALSE(board.view().lcd->displayOn);
    EXPECT_TRUE(panel.enable(true));
    EXPECT_TRUE(board.view().lcd->displayOn);
    EXPECT_TRUE(panel.resetController());
    EXPECT_FALSE(board.view().lcd->backlight);
    EXPECT_EQ(board.busFaultCount(), 0U);
    EXPECT_EQ(output.err(), "");
}

TEST_P(IndoorOnBoard, TestsItsLampsAndTellsKeys)
{
    fp::Indoor panel = indoorOn(board.getConfig());
    bool tested = false;
    const RecordedWaits waits([&](const std::string& wait) {
        if (wait == "3s") {
            tested = true;
            EXPECT_EQ(board.view().leds, std::vector<bool>(8, true));
            EXPECT_TRUE(board.view().lcd->lines[2][24].inverted);
        }
    });
    KeyEvents events;
    panel.connectAnyKeyChangedCb([&](unsigned key, bool level) { events.add(key, level); });
    EXPECT_TRUE(panel.start(true, 3));
    EXPECT_TRUE(tested && panel.isRunning());
    board.press(2);
    EXPECT_TRUE(events.waitFor("2+2+")) << "press and repeat";
    board.release(2);
    EXPECT_TRUE(events.waitFor("2-"));
    EXPECT_TRUE(panel.setLed(7, true));
    EXPECT_FALSE(panel.setLed(8, true));
    EXPECT_TRUE(board.view().leds[7]);
    panel.stop();
    EXPECT_FALSE(panel.isRunning());
    EXPECT_TRUE(board.view().lcd->backlight);
    EXPECT_EQ(board.view().leds, std::vector<bool>(8, false));
}

TEST(IndoorFpImpl, BindsItsPinsInOrder)
{
    FakePins pins;
    const CapturedOutput output;
    const RecordedWaits waits;
    const fp::IndoorFpImpl panel(pins, 10, 20, 40, 1, 2, {22}, {});
    const std::string events = pins.take();
    const std::string created = "10? create create create create create create create create create create create "
                                "create create create export 40 export 41 export 42 export 43 export 44 export 45 "
                                "export 46 export 47 export 48 export 49 export 50 export 51 export 52 export 22 "
                                "init 40 out 0";
    EXPECT_NE(events.find(created), std::string::npos) << events;
    EXPECT_NE(events.find("init 22 inverted out 0"), std::string::npos);
    EXPECT_TRUE(fp::isBacklightInverted(28, {3, 28}));
    EXPECT_FALSE(fp::isBacklightInverted(28, {}));
}

TEST(IndoorFpImpl, StaysUsableWithoutItsLcd)
{
    FakePins pins;
    pins.refuse("init 44 out 0");
    const CapturedOutput output;
    const RecordedWaits waits;
    {
        fp::IndoorFpImpl panel(pins, 10, 20, 40, 1, 1, {}, {});
        pins.take();
        EXPECT_TRUE(panel.start(false, 0));
        EXPECT_FALSE(panel.isRunning());
        EXPECT_FALSE(static_cast<fp::FpBase&>(panel).isRunning());
        EXPECT_FALSE(panel.clear() || panel.printBuffer(DisplayBuffer(25, 3)) || panel.enable(true));
        panel.stop();
        pins.take();
    }
    EXPECT_EQ(output.out(), "INFO: status register: 0 0x0\nINFO: KeyHandler stop called\n");
    EXPECT_EQ(output.err(), "ERROR: failed to initialize one or more gpio(s)\n");
    EXPECT_EQ(pins.take(), "delete 21 delete 52 delete 51 delete 50 delete 49 delete 48 delete 47 delete 46 delete 45 "
                           "delete 44 delete 43 delete 42 delete 41 delete 40 delete 10 delete 20");
}

TEST(IndoorFpImpl, LeavesNothingBehindWhicheverPinOperationThrows)
{
    unsigned built = 0;
    for (unsigned call = 1; built == 0; ++call) {
        Board board{BoardConfig()};
        panelsim::PinFault fault;
        fault.call = call;
        board.failPin(fault);
        panelsim::BoardGpioFactory factory(board);
        const CapturedOutput output;
        const RecordedWaits waits;
        try {
            const fp::IndoorFpImpl panel(factory, 10, 20, 40, 3, 8, {}, {});
            built = board.pinOperations() < call ? 1 : 0;
            EXPECT_TRUE(built == 1 || !output.err().empty()) << "operation " << call << " failed without a word";
        } catch (const std::runtime_error&) {
            EXPECT_EQ(output.err() + output.out(), "");
        }
        EXPECT_EQ(board.claimedLines(), 0U) << call;
    }
}

TEST(Outdoor, RunsEndToEnd)
{
    Board board(panelsim::outdoorBoard());
    const panelsim::InstalledBoard installed(board);
    const CapturedOutput output;
    {
        fp::Outdoor panel(10, 20);
        EXPECT_EQ(board.claimedLines(), 10U);
        panel.connectAnyKeyChangedCb([&panel](unsigned key, bool pressed) { panel.setLed(6 + key, pressed); });
        EXPECT_TRUE(panel.start(true, 0));
        EXPECT_FALSE(panel.start(false, 0));
        EXPECT_TRUE(panel.isRunning());
        board.press(1);
        EXPECT_TRUE(eventually(board, [](const PanelView& view) { return view.leds[7]; }));
        board.release(1);
        EXPECT_TRUE(eventually(board, [](const PanelView& view) { return !view.leds[7]; }));
        panel.connectAnyKeyChangedCb(nullptr);
        panel.setAllLeds(true);
        EXPECT_EQ(board.view().leds, std::vector<bool>(8, true));
        EXPECT_FALSE(panel.setLed(8, true));
        panel.stop();
        EXPECT_FALSE(panel.isRunning());
        EXPECT_EQ(board.view().leds, std::vector<bool>(8, false));
    }
    EXPECT_EQ(board.claimedLines(), 0U);
}
