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

using namespace panelsim;

/** Runs the tool on the installed board, with words that stand between single blanks. @return its exit status */
static int run(std::string words)
{
    std::replace(words.begin(), words.end(), ' ', '\0');
    std::vector<const char*> arguments{"frontpanel"};
    for (std::size_t start = 0; start < words.size(); start += std::strlen(arguments.back()) + 1) {
        arguments.push_back(&words[start]);
    }
    return tools::runFrontpanel(static_cast<int>(arguments.size()), arguments.data());
}

/**
 * Runs the tool.
 * @return its exit status and, each after a "|", the lines of standard output and of standard error: once where a line
 *         is repeated and, unless the tool is to be quiet, without those of the library, which begin with a capital
 */
static std::string outcomeOf(const std::string& words)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    std::string text = std::to_string(run(words)) + "\n";
    text += testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
    const std::regex unwanted(words.find("--quiet") == std::string::npos ? "\n[A-Z].*" : "\r");
    text = std::regex_replace(std::regex_replace(text, unwanted, ""), std::regex("(\n.+)\\1+"), "$1");
    std::replace(text.begin(), text.end(), '\n', '|');
    return text.substr(0, text.size() - 1);
}

TEST(Frontpanel, RefusesWrongArgumentsInOneLineAndUsesNoPin)
{
    const struct {
        std::string words, complaint;
    } cases[] = {
        {"blink", "unknown command 'blink', known are detect chips keys led leds print lamptest demo"},
        {"keys --key-base 1\n2", "--key-base: '1?2' is not a decimal number"},
        {"leds on --inverted-leds 7,28,8", "--inverted-leds: 8 is neither an LED (0 to 7) nor the backlight's GPIO 28"},
        {"leds off --led-base 4294967289",
         "LEDs (GPIO 4294967289 to 4294967296): the highest GPIO number is 4294967295"},
        {"demo --panel indoor --led-base 12", "keys (GPIO 10 to 12) and LEDs (GPIO 12 to 19) overlap at GPIO 12"},
        {"demo --panel outdoor --leds-on 0",
         "the outdoor panel has 2 keys and 8 LEDs, all active-high and off at start"},
        {"print a --panel outdoor", "the outdoor panel has no display"},
        {"print a 1234567890123456789012345\xC3\xA4", "LINE1: the text has 26 characters, a line of the display 25"},
        {"print 5€", "LINE0: the display has no '€'"},
        {"led 8 on", "N: there is no LED 8, the panel has 0 to 7"},
        {"led 10 on --led-count 11", ""},
        {"leds off --led-base 4294967288", ""},
        {"print -5 [a,b] {} --invert 2:24", ""},
        {"demo --key-base 18 --lcd-base 10 --seconds 0", ""},
    };
    for (const auto& [words, complaint] : cases) {
        EXPECT_EQ(outcomeOf(words),
                  complaint.empty() ? "1|frontpanel: no simulated board is installed" : "2|frontpanel: " + complaint)
            << words;
    }
}

/** @return the panel as text, with the number of times that key 1 was read */
static std::string drawn(const Board& board)
{
    return drawPanel(board.getConfig(), board.view(), TextStyle::Plain) + std::to_string(board.keyReads(1)) + " reads";
}

/**
 * What a person does, in a thread: waits until the panel shows each expression in turn, presses or releases key 1 in
 * between, and then ends the command by SIGTERM. SIGHUP, which is ignored, changes nothing.
 */
static void operate(Board& board, const std::vector<std::string>& expressions)
{
    for (std::size_t i = 0; i < expressions.size(); ++i) {
        const auto isShown = [&] { return std::regex_search(drawn(board), std::regex(expressions[i])); };
        i % 2 == 0 ? board.release(1) : board.press(1);
        for (int tries = 0; tries < 10000 && !isShown(); ++tries) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_TRUE(isShown()) << expressions[i] << drawn(board);
        kill(getpid(), i + 1 == expressions.size() ? SIGTERM : SIGHUP);
    }
}

TEST(Frontpanel, OperatesThePanelAndSaysInOneLineWhatFailed)
{
    const std::string dark = "LEDs (○ ){8}  keys", empty = "┐\n(│ {27}│\n){3}└[^]*on, backlight on\n" + dark;
    const std::string full = "┐\n(│ +│\n│ \\^{25} │\n){3}└[^]*LEDs (● ){8}";
    const std::string text =
        "│ {21}Grüße │\n│  \\^\\^ {20}\\^  │\n│ +│\n│ {22}21°C │\n│ \\^{25} │\n[^]* contrast 31/31\n" + dark;
    const std::string start = "│  Front panel +│\n│ \\^{25} │\n│ Press a key +│\n│ Events: 0 ";
    const std::string hold = "│ Key 1 held .repeat [0-9]+. +│\n│ Events: [1-9][^]*LEDs ○ ● ○";
    const std::string released = "│ Key 1 released +│\n[^]*" + dark;
    const std::string again = "|frontpanel: the display failed and is started again", failed = "1|frontpanel: ";
    const std::string held = "|key 1 pressed|key 1 repeated", refusal = "LED 1 on GPIO 21 did not take its level";
    const std::string print = "print Grüße  21°C --align right --contrast 100 --invert 0:1-2 --invert 0:23 --invert 2 ";
    const std::string demo = "demo --lamp-seconds 0", word = "print x --panel indoor";
    const BoardConfig indoor, outdoor = boardOf(panelKind("outdoor"));
    const BoardConfig inverted{15, true, ChipVariant::Ra8803, 4, 10, 20, 40, 3, 8, {3}, true};
    const PinFault lcdOnce{51, PinOperation::SetValue}, badLcd{51, PinOperation::SetValue, 1, {}};
    const PinFault badKey{11, PinOperation::GetValue};
    const PinFault refused{21, {}, 1, {}, PinFault::Kind::False};
    const struct {
        BoardConfig config;
        std::string words, outcome, left; // on the panel
        PinFault fault = {99};
        std::vector<std::string> steps = {};
    } cases[] = {
        {indoor, "detect --quiet", "0|indoor", dark},
        {outdoor, "detect", "0|outdoor", dark},
        {{3}, "detect", failed + "ID lines (GPIO 4 to 7) show no known panel", dark},
        {indoor, "leds on", failed + refusal, "LEDs ● ○ ○ ", refused},
        {inverted, print + "--inverted-leds 28", "0", text},
        {indoor, word, "0" + again, "│ x ", lcdOnce},
        {indoor, word, "1" + again + "|frontpanel: the display failed to show the text", dark, badLcd},
        {indoor, "lamptest 60", "0" + again, empty, lcdOnce, {full}},
        {indoor, "lamptest 0", "1" + again + "|frontpanel: the display failed during the lamp test", dark, badLcd},
        {indoor, demo, failed + "GPIO 11: made to fail", dark, badKey},
        {indoor, demo + " --seconds 0", "1" + again + "|frontpanel: the display failed", dark, badLcd},
        {indoor, demo, "1" + held + "|frontpanel: " + refusal, empty, refused, {start, "Key 1 held"}},
        {indoor, demo, "0" + held + "|key 1 released" + held, empty, {99}, {start, hold, released, hold}},
    };
    std::signal(SIGHUP, SIG_IGN);
    for (const auto& row : cases) {
        SCOPED_TRACE(row.words + row.outcome);
        Board board(row.config);
        const InstalledBoard installed(board);
        board.failPin(row.fault);
        const tools::Interrupt blocked; // so that the person's thread does not take the signal
        std::thread person(operate, std::ref(board), row.steps);
        EXPECT_EQ(outcomeOf(row.words), row.outcome);
        person.join();
        EXPECT_TRUE(std::regex_search(drawn(board), std::regex(row.left))) << drawn(board);
        EXPECT_EQ(board.claimedLines(), 0U);
    }
}

TEST(Frontpanel, EndsBySignalsAndWithoutAnybodyWhoTakesItsOutput)
{
    int full[2];
    ASSERT_EQ(pipe2(full, O_NONBLOCK), 0);
    while (write(full[1], "full", 4) > 0) {
    }
    // A signal comes while LED 0 is being switched on, which takes longer than the tool allows its output to stall.
    const auto end = [&full](const std::string& words, int output, int signal) {
        std::signal(signal, SIG_DFL);
        close(STDOUT_FILENO);
        dup2(output, STDOUT_FILENO);
        Board board{BoardConfig()};
        const InstalledBoard installed(board);
        board.press(1);
        board.observe([&](const LineChange& change) {
            if (change.gpio == 20 && change.level == LineLevel::High) {
                kill(getpid(), signal);
                std::this_thread::sleep_for(std::chrono::seconds(output == full[1] ? 60 : 2));
            }
        });
        const int status = run(words);
        std::_Exit(fcntl(STDOUT_FILENO, F_GETFD) == -1 ? 99 : status);
    };
    const std::string complaint = "^frontpanel: cannot write to standard output\n$";
    EXPECT_EXIT(end("keys", -1, SIGINT), testing::ExitedWithCode(1), complaint);
    EXPECT_EXIT(end("led 0 on", STDERR_FILENO, SIGTERM), testing::KilledBySignal(SIGTERM), ""); // has not waited for it
    EXPECT_EXIT(end("lamptest 86400", STDERR_FILENO, SIGINT), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(end("lamptest 86400", full[1], SIGHUP), testing::KilledBySignal(SIGHUP), "");
}
