#include "tests/tools/RunTool.h"
#include "tools/Frontpanel.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

TEST(CommandLine, RefusesWrongArgumentsInOneLineAndUsesNoPin)
{
    const std::string noNumber = "' is not a decimal number";
    const std::string tooHigh = ": the highest GPIO number is 4294967295";
    const std::string wiring = " --version --panel --id-base --key-base --led-base --lcd-base --key-count --led-count "
                               "--inverted-leds --leds-on";
    const struct {
        std::string words, complaint;
    } cases[] = {
        {"", "a command is needed, see frontpanel --help"},
        {"blink", "unknown command 'blink', known are detect chips keys led leds print lamptest demo"},
        {"print -x", "unknown option '-x', known are --help --invert --align --contrast" + wiring},
        {"keys now", "unexpected argument 'now'"},
        {"led", "N is required"},
        {"led 1 maybe", "on|off: maybe not in {on,off}"},
        {"led -1 on", "N: '-1" + noNumber},
        {"led 8 on", "there is no LED 8, the panel has 0 to 7"},
        {"led 0 on --led-count 0", "there is no LED 0, the panel has none"},
        {"keys --key-base", "--key-base: 1 required GPIO missing"},
        {"keys --key-base 1 --key-base 1", "--key-base: At Most 1 required but received 2"},
        {"keys --key-base 010", "--key-base: '010" + noNumber},
        {"keys --key-base 4294967296", "--key-base: Value 4294967296 not in range 0 to 4294967295"},
        {"keys --key-base 1\n2", "--key-base: '1?2" + noNumber},
        {"keys --key-count 257", "--key-count: Value 257 not in range 0 to 256"},
        {"leds on --leds-on 1,8", "--leds-on: there is no LED 8, the panel has 0 to 7"},
        {"leds on --inverted-leds 7,28,8", "--inverted-leds: 8 is neither an LED (0 to 7) nor the backlight's GPIO 28"},
        {"lamptest", "SECONDS is required"},
        {"lamptest 86401", "SECONDS: Value 86401 not in range 0 to 86400"},

        {"keys --panel indoor --key-base 4294967294", "keys (GPIO 4294967294 to 4294967296)" + tooHigh},
        {"demo --panel indoor --led-base 4294967288", "backlight (GPIO 4294967296)" + tooHigh},
        {"detect --id-base 4294967293", "ID lines (GPIO 4294967293 to 4294967296)" + tooHigh},
        {"demo --panel indoor --led-base 12", "keys (GPIO 10 to 12) and LEDs (GPIO 12 to 19) overlap at GPIO 12"},
        {"keys --key-base 3", "ID lines (GPIO 4 to 7) and keys (GPIO 3 to 5) overlap at GPIO 4"},
        {"print a --panel indoor --lcd-base 16",
         "backlight (GPIO 28) and LCD lines (GPIO 16 to 28) overlap at GPIO 28"},

        {"keys --panel outdoor --key-count 3", "--key-count: the outdoor panel has 2 keys"},
        {"leds on --panel outdoor --led-count 7", "--led-count: the outdoor panel has 8 LEDs"},
        {"led 0 on --panel outdoor --inverted-leds 0", "--inverted-leds: the outdoor panel's LEDs are all active-high"},
        {"demo --panel outdoor --leds-on 0", "--leds-on: the outdoor panel's LEDs are all off at start"},
        {"print a --panel outdoor", "the outdoor panel has no display"},

        {"print", "LINE0 is required"},
        {"print a b c d", "'d' is too much: the display has 3 lines"},
        {"print a 1234567890123456789012345\xC3\xA4", "LINE1: the text has 26 characters, a line of the display 25"},
        {"print 5€", "LINE0: the display has no '€'"},
        {"print a b \xC3(", "LINE2: the text is not valid UTF-8"},
        {"print a --contrast 101", "--contrast: Value 101 not in range 0 to 100"},
        {"print a --invert 3", "--invert: Value 3 not in range 0 to 2"},
        {"print a --invert 0 --invert 0:25", "--invert: Value 25 not in range 0 to 24"},
        {"print a --invert 0:1-25", "--invert: Value 25 not in range 0 to 24"},
        {"print a --invert 0:5-4", "--invert: '0:5-4' runs backwards"},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(runTool(row.words), "2|frontpanel: " + row.complaint) << row.words;
    }
}

TEST(CommandLine, UsesPinsForRightArgumentsAndReportsThatThereAreNone)
{
    for (const std::string words :
         {"detect", "detect --panel outdoor", "keys", "--key-base 0 keys --key-count=1", "keys --lcd-base 10",
          "led 7 off --led-base 8", "led 10 on --led-count 11", "leds on --inverted-leds 0,28",
          "leds off --led-base 4294967288", "print demo [a,b] {} --invert 0 --invert 2:24", "print --invert 0 -5 ",
          "print -- --help", "lamptest 0 --panel outdoor --key-count 2 --led-count 8", "lamptest 86400 --lcd-base 20",
          "demo --panel indoor --seconds 0 --lamp-seconds 0 --leds-on 7"}) {
        EXPECT_EQ(runTool(words), "1|frontpanel: no simulated board is installed") << words;
    }
}

TEST(CommandLine, FailsWhenStandardOutputIsBrokenAndOnlyThen)
{
    const int standardOutput = dup(STDOUT_FILENO);
    const int full = open("/dev/full", O_WRONLY);
    ASSERT_GE(dup2(full, STDOUT_FILENO), 0);
    const char* arguments[] = {"frontpanel", "--version"};
    testing::internal::CaptureStderr();
    EXPECT_EQ(tools::runFrontpanel(2, arguments), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "frontpanel: cannot write to standard output\n");
    dup2(standardOutput, STDOUT_FILENO);
    close(full);
    close(standardOutput);
    EXPECT_EQ(runTool("--version").rfind("0|frontpanel ", 0), 0U);
}

} // namespace
