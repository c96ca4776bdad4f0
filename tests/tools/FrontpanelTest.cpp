#include "tools/Frontpanel.h"

#include "panelsim/board/Board.h"
#include "panelsim/board/InstalledBoard.h"
#include "panelsim/picture/PanelText.h"
#include "tools/Interrupt.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace panelsim;

/**
 * Runs the tool on the installed board.
 * @param words what follows the tool's name, with one blank between two arguments
 * @return its exit status and, each after a "|", the lines of standard output and of standard error: once where a line
 *         is repeated, without the repeats of key 2, which is held until the tool ends, and, unless the tool is to be
 *         quiet, without those of the library, which begin with a capital
 */
std::string runTool(std::string words)
{
    const std::regex unwanted(words.find("--quiet") == std::string::npos ? "\n[A-Z].*" : "\r");
    std::replace(words.begin(), words.end(), ' ', '\0');
    std::vector<const char*> arguments{"frontpanel"};
    for (std::size_t start = 0; start < words.size(); start += std::strlen(arguments.back()) + 1) {
        arguments.push_back(&words[start]);
    }
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    std::string text = std::to_string(tools::runFrontpanel(static_cast<int>(arguments.size()), arguments.data()));
    text += "\n" + testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
    text = std::regex_replace(text, unwanted, "");
    text = std::regex_replace(text, std::regex("(\n.+)\\1+|\nkey 2 repeated"), "$1");
    std::replace(text.begin(), text.end(), '\n', '|');
    return text.substr(0, text.size() - 1);
}

TEST(Frontpanel, RefusesWrongArgumentsInOneLineAndUsesNoPin)
{
    const std::string fixed = "the outdoor panel has 2 keys and 8 LEDs, all active-high and off at start";
    const std::string cells = " is none of LINE, LINE:COLUMN and LINE:FROM-TO, with lines 0 to 2 and columns 0 to 24";
    const std::string tooHigh = ": the highest GPIO number is 4294967295";
    const struct {
        std::string words, complaint;
    } cases[] = {
        {"", "a command is needed, see frontpanel --help"},
        {"blink", "unknown command 'blink', known are detect chips keys led leds print lamptest demo"},
        {"led -x", "unknown option '-x', known are --help --id-base --inverted-leds --key-base --key-count "
                   "--lcd-base --led-base --led-count --leds-on --panel --version"},
        {"keys now", "unexpected argument 'now'"},
        {"led", "N is required"},
        {"led 1 maybe", "on|off: maybe not in {off,on}"},
        {"keys --key-base 010", "--key-base: '010' is not a decimal number"},
        {"keys --key-base 1\n2", "--key-base: '1?2' is not a decimal number"},
        {"print a --contrast 101", "--contrast: Value 101 not in range 0 to 100"},
        {"led 0 on --led-count 0", "N: there is no LED 0, the panel has none"},
        {"leds on --leds-on 1,8", "--leds-on: there is no LED 8, the panel has 0 to 7"},
        {"leds on --inverted-leds 7,28,8", "--inverted-leds: 8 is neither an LED (0 to 7) nor the backlight's GPIO 28"},
        {"demo --panel indoor --led-base 4294967288", "backlight (GPIO 4294967296)" + tooHigh},
        {"keys --key-base 3", "ID lines (GPIO 4 to 7) and keys (GPIO 3 to 4) overlap at GPIO 4"},
        {"demo --panel indoor --led-base 12", "keys (GPIO 10 to 12) and LEDs (GPIO 12 to 19) overlap at GPIO 12"},
        {"keys --panel outdoor --key-count 3", fixed},
        {"demo --panel outdoor --leds-on 0", fixed},
        {"print a --panel outdoor", "the outdoor panel has no display"},
        {"print a 1234567890123456789012345\xC3\xA4", "LINE1: the text has 26 characters, a line of the display 25"},
        {"print 5€", "LINE0: the display has no '€'"},
        {"print a b \xC3(", "LINE2: the text is not valid UTF-8"},
        {"print a --invert 0 --invert 3", "--invert: '3'" + cells},
        {"print a --invert 0:4-5x", "--invert: '0:4-5x'" + cells},
        {"print a --invert 0:4:5", "--invert: '0:4:5'" + cells},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(runTool(row.words), "2|frontpanel: " + row.complaint) << row.words;
    }
    for (const std::string words :
         {"detect --panel outdoor", "keys --panel indoor --id-base 10", "--key-base 0 keys --key-count=1",
          "led 10 on --led-count 11", "leds off --led-base 4294967288", "leds on --inverted-leds 0,28",
          "print -- --help", "print -5 [a,b] {} --invert 2:24", "lamptest 86400 --panel outdoor --key-base 28",
          "demo --key-base 18 --lcd-base 10 --seconds 0"}) {
        EXPECT_EQ(runTool(words), "1|frontpanel: no simulated board is installed") << words;
    }
}

std::string drawn(const Board& board)
{
    return drawPanel(board.getConfig(), board.view(), TextStyle::Plain);
}

/**
 * What a person does, in a thread, before SIGTERM ends the command: "+1" presses key 1, "-1" releases it, "~" waits
 * until it has repeated, and any other text is waited for on the panel.
 */
void operate(Board& board, const std::vector<std::string>& steps)
{
    for (const std::string& step : steps) {
        const auto isSeen = [&] {
            return step == "~" ? board.keyReads(1) > 20 : drawn(board).find(step) != std::string::npos;
        };
        if (step[0] == '+') {
            board.press(step[1] - '0');
        } else if (step[0] == '-') {
            board.release(step[1] - '0');
        } else {
            for (int i = 0; i < 10000 && !isSeen(); ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            EXPECT_TRUE(isSeen()) << step << drawn(board);
        }
    }
    kill(getpid(), SIGTERM);
}

TEST(Frontpanel, OperatesThePanelAndSaysInOneLineWhatFailed)
{
    const std::string edge = "───────────────────────────", blank = "│                           │\n";
    const std::string bar = "│ ^^^^^^^^^^^^^^^^^^^^^^^^^ │\n", dark = "LEDs ○ ○ ○ ○ ○ ○ ○ ○   keys";
    const std::string top = "┌" + edge + "┐\n", bottom = "└" + edge + "┘\ndisplay on, backlight on";
    const std::string empty = top + blank + blank + blank + bottom + "\n" + dark;
    const std::string full = top + blank + bar + blank + bar + blank + bar + bottom + "\nLEDs ● ● ● ● ● ● ● ●";
    const std::string text = "│                     Grüße │\n│  ^^                    ^  │\n" + blank +
                             "│                      21°C │\n" + bar + bottom + ", contrast 31/31\n" + dark;
    const std::string start =
        top + "│  Front panel              │\n" + bar + "│ Press a key               │\n│ Events: 0 ";
    const std::string again = "|frontpanel: the display failed and is started again", failed = "1|frontpanel: ";
    const std::string held = "|key 1 pressed|key 1 repeated", refusal = "LED 1 on GPIO 21 did not take its level";
    const std::string print = "print Grüße  21°C --align right --contrast 100 --invert 0:1-2 --invert 0:23 --invert 2 ";
    const std::string demo = "demo --lamp-seconds 0", word = "print x --panel indoor";
    const BoardConfig indoor, outdoor = boardOf(panelKind("outdoor"));
    const BoardConfig inverted{15, true, ChipVariant::Ra8803, 4, 10, 20, 40, 3, 8, {3}, true};
    const PinFault lcdOnce{51, PinOperation::SetValue}, badLcd{51, PinOperation::SetValue, 1, {}};
    const PinFault badKey{11, PinOperation::GetValue}, badLed{27, PinOperation::SetValue, 1, {}};
    const PinFault refused{21, {}, 1, {}, PinFault::Kind::False}, badId{5, PinOperation::GetValue};
    const std::vector<std::string> played{start,
                                          "+1",
                                          "Key 1 held (1 repeat)     │\n│ Events: 2 ",
                                          "(2 repeats) ",
                                          "LEDs ○ ● ○ ○ ○ ○ ○ ○   keys  0  [1]  2",
                                          "-1",
                                          "Key 1 released ",
                                          dark,
                                          "+2",
                                          "LEDs ○ ○ ● ○ ○"};
    const struct {
        BoardConfig config;
        std::string words, outcome, left; // on the panel
        PinFault fault = {99};
        std::vector<std::string> steps = {};
    } cases[] = {
        {indoor, "detect --quiet", "0|indoor", dark},
        {outdoor, "detect", "0|outdoor", dark},
        {{3}, "detect", failed + "ID lines (GPIO 4 to 7) show no known panel", dark},
        {indoor, "detect", failed + "GPIO 5: made to fail", dark, badId},
        {inverted, "leds off --inverted-leds 3", "0", dark},
        {inverted, "leds on", "0", "LEDs ● ● ● ○ ● ● ● ●"}, // LED 3 was not said to be inverted
        {inverted, "led 6 on", "0", "LEDs ○ ○ ○ ○ ○ ○ ● ○"},
        {indoor, "leds on", failed + refusal, "LEDs ● ○ ○ ", refused},
        {inverted, print + "--inverted-leds 28", "0", text},
        {indoor, word, "0" + again, "│ x ", lcdOnce},
        {indoor, word, "1" + again + "|frontpanel: the display failed to show the text", dark, badLcd},
        {inverted, "lamptest 0 --leds-on 1", "0", "LEDs ○ ● ○ ● ○ ○ ○ ○"},
        {outdoor, "lamptest 0", "0", dark},
        {indoor, "lamptest 60", "0" + again, empty, lcdOnce, {full}},
        {indoor, "lamptest 0", "1" + again + "|frontpanel: the display failed during the lamp test", dark, badLcd},
        {indoor, "lamptest 0", failed + "GPIO 27: made to fail", dark, badLed},
        {indoor, "keys", failed + "GPIO 11: made to fail", dark, badKey},
        {indoor, demo, failed + "GPIO 11: made to fail", dark, badKey},
        {indoor, demo + " --seconds 0", "1" + again + "|frontpanel: the display failed", dark, badLcd},
        {indoor, demo, "1" + held + "|frontpanel: " + refusal, empty, refused, {start, "+1", "Key 1 held"}},
        {indoor, "keys", "0" + held, dark, {99}, {"+1", "~"}},
        {indoor, demo, "0" + held + "|key 1 released|key 2 pressed", empty, {99}, played},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.words + row.outcome);
        Board board(row.config);
        const InstalledBoard installed(board);
        board.failPin(row.fault);
        const tools::Interrupt blocked; // so that the person's thread does not take the signal
        std::thread person(row.steps.empty() ? [](Board&, const std::vector<std::string>&) {} : operate,
                           std::ref(board), row.steps);
        EXPECT_EQ(runTool(row.words), row.outcome);
        person.join();
        EXPECT_NE(drawn(board).find(row.left), std::string::npos) << drawn(board);
        EXPECT_EQ(board.claimedLines(), 0U);
    }
}

TEST(Frontpanel, EndsWithoutStandardOutputAndLetsNoGpioTakeItsPlace)
{
    const auto watchKeys = [] {
        Board board{BoardConfig()};
        const InstalledBoard installed(board);
        board.press(1);
        close(STDOUT_FILENO);
        const char* arguments[] = {"frontpanel", "keys"};
        const int status = tools::runFrontpanel(2, arguments);
        std::_Exit(fcntl(STDOUT_FILENO, F_GETFD) == -1 ? 99 : status);
    };
    EXPECT_EXIT(watchKeys(), testing::ExitedWithCode(1), "^frontpanel: cannot write to standard output\n$");
}

} // namespace
