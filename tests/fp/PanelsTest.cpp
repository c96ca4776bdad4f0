#include "frontpanelhw/fp/Indoor.h"
#include "frontpanelhw/fp/Outdoor.h"
#include "panelsim/board/Board.h"
#include "panelsim/board/InstalledBoard.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FakePins.h"
#include "tests/support/KeyEvents.h"
#include "tests/support/RecordedWaits.h"

#include <gtest/gtest.h>

using namespace frontpanelhw;
using drawing::DisplayBuffer;
using panelsim::Board;
using panelsim::BoardConfig;
using panelsim::ChipVariant;
using panelsim::PanelView;

namespace {

/** A board whose LEDs 1 and 7 and backlight are lit by a low line. */
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
    static fp::Indoor makePanel() { return {10, 20, 40, 3, 8, {1, 7, 28}, {0, 1}}; }
    /** What the LCD shows, in the form in which it was printed. */
    DisplayBuffer shown() const
    {
        DisplayBuffer page(25, 3);
        const PanelView view = board.view();
        unsigned row = 0;
        for (const auto& cells : view.lcd->lines) {
            drawing::DisplayLine line;
            for (const panelsim::LcdCell& cell : cells) {
                line.addCharacter({cell.code, cell.inverted});
            }
            page.setDisplayLine(row++, line);
        }
        return page;
    }

    Board board{wiring()};
    panelsim::InstalledBoard installed{board};
    CapturedOutput output;
    const std::vector<bool> noLed = std::vector<bool>(8, false);
    const std::vector<bool> allLeds = std::vector<bool>(8, true);
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Chips, IndoorOnBoard, testing::Values(ChipVariant::Ra8803, ChipVariant::Ra8806),
                         [](const auto& chip) { return chip.param == ChipVariant::Ra8803 ? "Ra8803" : "Ra8806"; });

TEST_P(IndoorOnBoard, ComesUpEmptyAndLitWithoutAFlashOfOtherLeds)
{
    const bool isRa8803 = GetParam() == ChipVariant::Ra8803;
    std::vector<unsigned> lit;
    board.observe([&](const panelsim::LineChange& change) {
        const bool inverted = change.gpio == 21 || change.gpio == 27;
        const auto litLevel = inverted ? panelsim::LineLevel::Low : panelsim::LineLevel::High;
        if (change.gpio >= 20 && change.gpio < 28 && change.level == litLevel) {
            lit.push_back(change.gpio);
        }
    });
    {
        fp::Indoor panel = makePanel();
        const PanelView view = board.view();
        EXPECT_TRUE(view.lcd->displayOn && view.lcd->backlight);
        EXPECT_EQ(view.lcd->contrast, isRa8803 ? std::optional<unsigned>(15) : std::nullopt);
        EXPECT_EQ(shown(), DisplayBuffer(panel.getChars(), panel.getLines()));
        EXPECT_FALSE(panel.isRunning());
    }
    EXPECT_EQ(output.take(),
              std::string("INFO: LcdControl ") + (isRa8803 ? "c9" : "0") + "\nINFO: status register: 1 0x40\n");
    EXPECT_EQ(lit, (std::vector<unsigned>{20, 21}));
    EXPECT_EQ(board.view().leds, (std::vector<bool>{true, true, false, false, false, false, false, false}));
    EXPECT_EQ(board.busFaultCount() + board.claimedLines(), 0U);
}

TEST_P(IndoorOnBoard, ShowsThePagesThatArePrinted)
{
    fp::Indoor panel = makePanel();
    output.take();
    DisplayBuffer page(25, 3);
    for (unsigned run = 0; run < 3; ++run) {
        for (unsigned line = 0; line < 3; ++line) {
            drawing::DisplayLine text;
            for (unsigned column = 0; column < 25; ++column) {
                text.addCharacter(
                    {static_cast<char16_t>(33 + column * 7 + line + run), (column + line + run) % 3 == 0});
            }
            page.setDisplayLine(line, text);
        }
        EXPECT_TRUE(panel.printBuffer(page));
        EXPECT_EQ(shown(), page);
    }
    EXPECT_TRUE(panel.clear() && panel.printLine(1, drawing::DisplayLine(u"hidden")));
    EXPECT_EQ(shown(), page) << "the hidden page is written";
    EXPECT_TRUE(panel.swapPage());
    page.clear();
    page.setLineContent(1, u"hidden");
    EXPECT_EQ(shown(), page);
    for (const bool on : {false, true}) {
        EXPECT_TRUE(panel.enable(on));
        EXPECT_EQ(board.view().lcd->displayOn, on);
    }
    EXPECT_TRUE(panel.resetController());
    EXPECT_FALSE(board.view().lcd->backlight);
    EXPECT_EQ(board.busFaultCount(), 0U);
    EXPECT_EQ(output.take(), "");
}

TEST_P(IndoorOnBoard, TestsItsLampsAndTellsKeys)
{
    fp::Indoor panel = makePanel();
    bool tested = false;
    const RecordedWaits waits([&](const std::string& wait) {
        if (wait == "3s") {
            tested = board.view().leds == allLeds && board.view().lcd->lines[2][24].inverted;
        }
        return true;
    });
    KeyEvents events;
    panel.connectAnyKeyChangedCb([&](unsigned key, bool level) { events.add(key, level); });
    EXPECT_TRUE(panel.start(true, 3) && tested && panel.isRunning());
    board.press(2);
    EXPECT_TRUE(events.waitFor("2+2+")) << "press and repeat";
    board.release(2);
    EXPECT_TRUE(events.waitFor("2-"));
    EXPECT_TRUE(panel.setLed(7, true) && board.view().leds[7]);
    EXPECT_FALSE(panel.setLed(8, true));
    panel.stop();
    EXPECT_FALSE(panel.isRunning());
    EXPECT_TRUE(board.view().lcd->backlight);
    EXPECT_EQ(board.view().leds, noLed);
    panel.setAllLeds(true);
    EXPECT_EQ(board.view().leds, allLeds);
    panel.setAllLeds(false);
    EXPECT_EQ(board.view().leds, noLed);
}

TEST(IndoorFpImpl, BindsItsPinsInOrderAndStaysUsableWithoutItsLcd)
{
    FakePins pins;
    pins.refused = {"init 44 out 0"};
    const CapturedOutput output;
    {
        fp::IndoorFpImpl panel(pins, 10, 20, 40, 1, 2, {22}, {});
        const std::string events = pins.take();
        EXPECT_EQ(
            events.substr(events.find("10?")),
            "10? create create create create create create create create create create create create create create "
            "export 40 export 41 export 42 export 43 export 44 export 45 export 46 export 47 export 48 "
            "export 49 export 50 export 51 export 52 export 22 init 40 out 0 init 41 out 0 init 42 out 0 "
            "init 43 out 0 init 44 out 0 init 45 out 0 init 46 out 0 init 47 out 0 init 48 out 0 "
            "init 49 inverted out 0 init 50 inverted out 0 init 51 inverted out 0 init 52 inverted out 0 "
            "init 22 inverted out 0");
        EXPECT_TRUE(panel.start(false, 0));
        EXPECT_FALSE(panel.isRunning() || static_cast<fp::FpBase&>(panel).isRunning());
        panel.stop();
        pins.take();
    }
    EXPECT_EQ(pins.take(), "delete 22 delete 52 delete 51 delete 50 delete 49 delete 48 delete 47 delete 46 delete 45 "
                           "delete 44 delete 43 delete 42 delete 41 delete 40 delete 10 delete 20 delete 21");
    EXPECT_TRUE(fp::isBacklightInverted(28, {3, 28}));
    EXPECT_FALSE(fp::isBacklightInverted(28, {}));
}

TEST(Outdoor, RunsEndToEnd)
{
    Board board(panelsim::boardOf(panelsim::panelKind("outdoor")));
    const panelsim::InstalledBoard installed(board);
    const CapturedOutput output;
    {
        fp::Outdoor panel(10, 20);
        EXPECT_EQ(board.claimedLines(), 10U);
        KeyEvents events;
        panel.connectAnyKeyChangedCb([&](unsigned key, bool pressed) { events.add(key, pressed); });
        EXPECT_TRUE(panel.start(true, 0) && panel.isRunning());
        board.press(1);
        EXPECT_TRUE(events.waitFor("1+"));
        panel.setAllLeds(true);
        EXPECT_EQ(board.view().leds, std::vector<bool>(8, true));
        EXPECT_FALSE(panel.setLed(8, true));
        panel.stop();
        EXPECT_FALSE(panel.isRunning());
        EXPECT_EQ(board.view().leds, std::vector<bool>(8, false));
    }
    EXPECT_EQ(board.claimedLines(), 0U);
}
