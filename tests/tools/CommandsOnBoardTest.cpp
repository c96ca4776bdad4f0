#include "panelsim/board/Board.h"
#include "panelsim/board/InstalledBoard.h"
#include "panelsim/picture/PanelText.h"
#include "tests/tools/RunTool.h"
#include "tools/Frontpanel.h"

#include <chrono>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <thread>
#include <unistd.h>

using panelsim::Board;
using panelsim::BoardConfig;
using panelsim::PinFault;
using panelsim::PinOperation;

namespace {

std::string drawn(const Board& board)
{
    return drawPanel(board.getConfig(), board.view(), panelsim::TextStyle::Plain);
}

std::string ledsAndKeys(const std::string& panel)
{
    return panel.substr(panel.find("LEDs"));
}

/** Waits for what a command leads to, but not forever: when it does not come, the expectation that follows fails. */
void waitUntil(const std::function<bool()>& happened)
{
    for (int i = 0; i < 10000 && !happened(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

/** @return the panel when it shows the text */
std::string waitFor(const Board& board, const std::string& text)
{
    waitUntil([&] { return drawn(board).find(text) != std::string::npos; });
    return drawn(board);
}

/** Lets a command for three keys get to its polling, or poll until each key that is held has repeated. */
void letPoll(const Board& board)
{
    const auto enough = board.pinOperations() + 60;
    waitUntil([&] { return board.pinOperations() >= enough; });
}

/** Runs a command that a person ends with SIGTERM after having done something. */
std::string runWith(const std::function<void()>& person, const std::string& words)
{
    std::thread thread([&person] {
        sigset_t all{};
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
        person();
        kill(getpid(), SIGTERM);
    });
    const std::string text = runTool(words);
    thread.join();
    return text;
}

const std::string edge = "───────────────────────────";
const std::string top = "┌" + edge + "┐\n";
const std::string bottom = "└" + edge + "┘\ndisplay on, backlight on\n";
const std::string blank = "│                           │\n";
const std::string inverted = "│ ^^^^^^^^^^^^^^^^^^^^^^^^^ │\n";

TEST(CommandsOnBoard, SwitchLedsAndPrintText)
{
    BoardConfig config;
    config.chip = panelsim::ChipVariant::Ra8803;
    config.invertedLeds = {3};
    config.backlightInverted = true;
    Board board(config);
    const panelsim::InstalledBoard installed(board);
    const struct {
        std::string words, leds;
    } cases[] = {
        {"leds off --inverted-leds 3", "○ ○ ○ ○ ○ ○ ○ ○"},
        {"leds on", "● ● ● ○ ● ● ● ●"}, // LED 3 was not said to be inverted
        {"led 7 off", "● ● ● ○ ● ● ● ○"},
        {"lamptest 0 --leds-on 1", "○ ● ○ ● ○ ○ ○ ○"},
        {"led 3 on --inverted-leds 3", "○ ● ○ ● ○ ○ ○ ○"},
        {"print Grüße  21°C --align right --contrast 100 --invert 0:1-2 --invert 0:23 --invert 2 --inverted-leds 28",
         "○ ● ○ ● ○ ○ ○ ○"}};
    for (const auto& row : cases) {
        EXPECT_EQ(runTool(row.words), "0") << row.words;
        EXPECT_EQ(ledsAndKeys(drawn(board)), "LEDs " + row.leds + "   keys  0   1   2\n") << row.words;
    }
    EXPECT_EQ(drawn(board), top + "│                     Grüße │\n│  ^^                    ^  │\n" + blank +
                                "│                      21°C │\n" + inverted + bottom.substr(0, bottom.size() - 1) +
                                ", contrast 31/31\n"
                                "LEDs ○ ● ○ ● ○ ○ ○ ○   keys  0   1   2\n");
    const char* arguments[] = {"frontpanel", "detect", "--quiet"};
    testing::internal::CaptureStdout();
    tools::runFrontpanel(3, arguments);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "indoor\n");
    EXPECT_EQ(board.claimedLines(), 0U);
    EXPECT_EQ(board.busFaultCount(), 0U);
}

TEST(CommandsOnBoard, ShowLampsAndKeysUntilTheyAreEnded)
{
    BoardConfig config;
    config.ledCount = 3;
    config.invertedLeds = {1};
    config.backlightInverted = true;
    Board board(config);
    const panelsim::InstalledBoard installed(board);
    const std::string wiring = " --led-count 3 --inverted-leds 1,23 --leds-on 0";
    const std::string events = "0|key 1 pressed|key 1 repeated|key 1 released|key 2 pressed|key 2 repeated";
    std::string seen;
    const auto lampWatcher = [&] { seen = waitFor(board, inverted + "└"); };
    EXPECT_EQ(runWith(lampWatcher, "lamptest 60" + wiring), "0");
    seen += ledsAndKeys(drawn(board));
    EXPECT_EQ(seen, top + blank + inverted + blank + inverted + blank + inverted + bottom +
                        "LEDs ● ● ●   keys  0   1   2\nLEDs ● ○ ○   keys  0   1   2\n");

    const auto typist = [&] {
        letPoll(board);
        board.press(1);
        letPoll(board);
        board.release(1);
        board.press(2);
        letPoll(board);
    };
    EXPECT_EQ(runWith(typist, "keys --key-count 3"), events);
    board.release(2);
    EXPECT_EQ(ledsAndKeys(drawn(board)), "LEDs ● ○ ○   keys  0   1   2\n") << "keys does not use LEDs";

    std::string page;
    const auto player = [&] {
        seen = ledsAndKeys(waitFor(board, "Press a key "));
        board.press(1);
        seen += ledsAndKeys(waitFor(board, "Key 1 held ("));
        board.release(1);
        page = waitFor(board, "Key 1 released ");
        board.press(2);
        seen += ledsAndKeys(waitFor(board, "Key 2 held ("));
    };
    EXPECT_EQ(runWith(player, "demo --lamp-seconds 0" + wiring), events);
    EXPECT_EQ(seen, "LEDs ● ○ ○   keys  0   1   2\nLEDs ● ● ○   keys  0  [1]  2\nLEDs ● ○ ●   keys  0   1  [2]\n");
    EXPECT_EQ(page.find(top + "│  Front panel              │\n" + inverted + "│ Key 1 released            │\n"), 0U);
    EXPECT_EQ(page.find("Events: 0"), std::string::npos);
    EXPECT_EQ(drawn(board), top + blank + blank + blank + bottom + "LEDs ○ ○ ○   keys  0   1  [2]\n");
}

TEST(CommandsOnBoard, SayInOneLineWhatFailedAndLeaveNoLedLit)
{
    const BoardConfig indoor;
    const BoardConfig outdoor = panelsim::boardOf(panelsim::panelKind("outdoor"));
    const PinFault none{99};
    const PinFault badLcd{51, PinOperation::SetValue, 1, std::nullopt};
    const PinFault lcdOnce{51, PinOperation::SetValue};
    const PinFault badLed{27, PinOperation::SetValue, 1, std::nullopt};
    const PinFault badKey{11, PinOperation::GetValue, 1, std::nullopt};
    const auto refusing = [](unsigned gpio) { return PinFault{gpio, {}, 1, std::nullopt, PinFault::Kind::False}; };
    const std::string demo = "demo --lamp-seconds 0";
    const std::string start = "Press a key";
    const std::string again = "|frontpanel: the display failed and is started again";
    const std::string held = "|key 1 pressed|key 1 repeated";
    const struct {
        BoardConfig config;
        PinFault fault;
        std::string words, outcome;
        std::string shown = ""; // what the fault waits for on the panel
        bool presses = false;   // whether key 1 is pressed then
    } cases[] = {
        {BoardConfig{3}, none, "detect", "1|frontpanel: ID lines (GPIO 4 to 7) show no known panel"},
        {outdoor, none, "detect", "0|outdoor"},
        {outdoor, none, "lamptest 0", "0"},
        {outdoor, none, "print x", "1|frontpanel: the outdoor panel has no display"},
        {indoor, none, demo + " --seconds 0", "0"},
        {indoor, none, "led 1 on --led-base 60", "1|frontpanel: GPIO 61: no such GPIO on this board: Invalid argument"},
        {indoor, refusing(22), "led 2 on", "1|frontpanel: LED 2 on GPIO 22 did not take its level"},
        {indoor, badLcd, "print x --panel indoor", "1" + again + "|frontpanel: the display failed to show the text"},
        {indoor, badLed, "lamptest 0", "1|frontpanel: GPIO 27: made to fail"},
        {indoor, badLed, demo, "1|frontpanel: GPIO 27: made to fail"},
        {indoor, badKey, "keys", "1|frontpanel: GPIO 11: made to fail"},
        {indoor, badKey, demo, "1|frontpanel: GPIO 11: made to fail"},
        {indoor, {5, PinOperation::GetValue, 1, true}, "detect", "1|frontpanel: GPIO 5: made to fail"},
        {indoor, badLcd, "lamptest 60", "1" + again + "|frontpanel: the display failed during the lamp test",
         inverted + "└"},
        {indoor, badLcd, demo, "1" + again + "|frontpanel: the display failed", start},
        {indoor, lcdOnce, "print x --panel indoor", "0" + again},
        {indoor, lcdOnce, "lamptest 60", "0" + again, "LEDs ● ● ● ● ● ● ● ●"},
        {indoor, lcdOnce, demo, "0" + held + again, start, true}, // keys and LEDs go on
        {indoor, refusing(21), demo, "1" + held + "|frontpanel: LED 1 on GPIO 21 did not take its level", start, true},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.words + row.outcome);
        Board board(row.config);
        const panelsim::InstalledBoard installed(board);
        const auto person = [&] {
            waitFor(board, row.shown);
            board.failPin(row.fault);
            if (row.presses) {
                board.press(1);
                waitFor(board, "Key 1 held (");
            } else if (row.outcome[0] == '0') {
                waitFor(board, inverted + "└");
                letPoll(board);
            }
        };
        if (row.shown.empty()) {
            board.failPin(row.fault);
        }
        EXPECT_EQ(row.shown.empty() ? runTool(row.words) : runWith(person, row.words), row.outcome);
        EXPECT_EQ(drawn(board).find("●"), std::string::npos);
        EXPECT_EQ(board.claimedLines(), 0U);
    }
}

} // namespace
