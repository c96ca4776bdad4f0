#include "panelsim/Board.h"
#include "panelsim/InstalledBoard.h"
#include "panelsim/PanelText.h"
#include "tools/Frontpanel.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

using panelsim::Board;
using panelsim::BoardConfig;

namespace {

/** Runs a command of the tool on the installed board. @return its exit status, with what it wrote but the library's
 * INFO lines */
std::string run(std::vector<const char*> arguments)
{
    arguments.insert(arguments.begin(), "frontpanel");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int status = tools::runFrontpanel(static_cast<int>(arguments.size()), arguments.data());
    std::istringstream written(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr());
    std::string text = std::to_string(status);
    for (std::string line; std::getline(written, line);) {
        text += line.rfind("INFO: ", 0) == 0 ? "" : "|" + line;
    }
    return text;
}

std::string ledsAndKeys(const Board& board)
{
    const std::string text = drawPanel(board.view(), panelsim::TextStyle::Plain);
    return text.substr(text.find("LEDs"));
}

} // namespace

TEST(CommandsOnBoard, DoWhatTheySay)
{
    BoardConfig config;
    config.invertedLeds = {3};
    Board board(config);
    const panelsim::InstalledBoard installed(board);
    EXPECT_EQ(run({"detect"}), "0|indoor");
    EXPECT_EQ(run({"led", "3", "on", "--inverted-leds", "3"}), "0");
    EXPECT_EQ(run({"led", "5", "on"}), "0");
    EXPECT_EQ(ledsAndKeys(board), "LEDs ○ ○ ○ ● ○ ● ○ ○   keys  0   1   2\n") << "one LED leaves the others alone";
    EXPECT_EQ(run({"print", "Gr\u00fc\u00dfe", "", "21 \u00b0C", "--invert", "2:0-1"}), "0");
    EXPECT_EQ(drawPanel(board.view(), panelsim::TextStyle::Plain), "┌───────────────────────────┐\n"
                                                                   "│ Grüße                     │\n"
                                                                   "│                           │\n"
                                                                   "│ 21 °C                     │\n"
                                                                   "│ ^^                        │\n"
                                                                   "└───────────────────────────┘\n"
                                                                   "display on, backlight on\n"
                                                                   "LEDs ○ ○ ○ ● ○ ● ○ ○   keys  0   1   2\n");
    EXPECT_EQ(run({"leds", "off", "--inverted-leds", "3"}), "0");
    EXPECT_EQ(run({"lamptest", "0"}), "0");
    EXPECT_EQ(ledsAndKeys(board), "LEDs ○ ○ ○ ● ○ ○ ○ ○   keys  0   1   2\n") << "LED 3 was not said to be inverted";
    EXPECT_EQ(board.claimedLines(), 0U);
    EXPECT_EQ(board.busFaultCount(), 0U);
}

TEST(CommandsOnBoard, SayInOneLineWhatFailed)
{
    BoardConfig config;
    config.panelId = 3;
    Board board(config);
    const panelsim::InstalledBoard installed(board);
    EXPECT_EQ(run({"detect"}),
              "1|WARNING: detected unknown front panel type: 3|frontpanel: ID lines (GPIO 4 to 7) show no known panel");
    EXPECT_EQ(run({"led", "1", "on", "--led-base", "60"}), "1|frontpanel: GPIO 61: no such GPIO on this board: "
                                                           "Invalid argument");
    panelsim::PinFault refused;
    refused.gpio = 22;
    refused.kind = panelsim::PinFault::Kind::False;
    refused.lasting = true;
    board.failPin(refused);
    EXPECT_EQ(run({"led", "2", "on"}), "1|frontpanel: LED 2 on GPIO 22 did not take its level");
    panelsim::PinFault broken;
    broken.gpio = 51;
    broken.operation = panelsim::PinOperation::SetValue;
    broken.lasting = true;
    board.failPin(broken);
    const std::string failed = run({"print", "x", "--panel", "indoor"});
    EXPECT_EQ(failed.front(), '1');
    EXPECT_EQ(failed.substr(failed.rfind('|')), "|frontpanel: the display failed to show the text");
    EXPECT_EQ(board.claimedLines(), 0U);
}
