#include "tools/Frontpanel.h"

#include "sysfs/SysfsGpioFactory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

unsigned pinsAskedFor = 0;

} // namespace

// In place of the platform's pins: none can be had here.
std::unique_ptr<sysfs::ISysfsGpio> sysfs::SysfsGpioFactory::create() const
{
    ++pinsAskedFor;
    throw std::runtime_error("no GPIO\nhere");
}

namespace {

constexpr const char* noGpio = "frontpanel: no GPIO?here\n";

using Arguments = std::vector<const char*>;

struct Outcome {
    int status;
    std::string out;
    std::string err;
    unsigned pins;
};

Outcome run(Arguments arguments)
{
    arguments.insert(arguments.begin(), "frontpanel");
    arguments.push_back(nullptr);
    pinsAskedFor = 0;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int status = tools::runFrontpanel(static_cast<int>(arguments.size()) - 1, arguments.data());
    const std::string err = testing::internal::GetCapturedStderr();
    return {status, testing::internal::GetCapturedStdout(), err, pinsAskedFor};
}

std::string joined(const Arguments& arguments)
{
    std::string text;
    for (const char* argument : arguments) {
        text += std::string(" ") + argument;
    }
    return text;
}

TEST(CommandLine, RefusesWhatCannotBeInOneLineAndTouchesNoPin)
{
    struct Case {
        Arguments arguments;
        std::string complaint;
    };
    const std::string noBase = "' is not a number from 0 to 4294967295";
    const std::vector<Case> cases = {
        {{}, "a command is needed, see frontpanel --help"},
        {{"--panel", "indoor"}, "a command is needed, see frontpanel --help"},
        {{"blink"}, "unknown command 'blink', see frontpanel --help"},
        {{"--blink", "keys"}, "unknown option '--blink'"},
        {{"led", "--blink"}, "unknown option '--blink'"},
        {{"print", "-x"}, "unknown option '-x'"},
        {{"keys", "now"}, "unexpected argument 'now'"},
        {{"keys", "detect"}, "unexpected argument 'detect'"},
        {{"led"}, "N is required"},
        {{"led", "1"}, "on|off is required"},
        {{"led", "1", "maybe"}, "on|off: 'maybe' is not on or off"},
        {{"led", "-1", "on"}, "N: '-1" + noBase},
        {{"led", "8", "on"}, "there is no LED 8, the panel has 8"},
        {{"led", "0", "on", "--led-count", "0"}, "there is no LED 0, the panel has 0"},
        {{"keys", "--panel", "door"}, "--panel: 'door' is not auto or indoor or outdoor"},
        {{"keys", "--key-base"}, "--key-base: 1 required GPIO missing"},
        {{"keys", "--key-base", "1", "--key-base", "1"}, "--key-base: At Most 1 required but received 2"},
        {{"keys", "--key-base", ""}, "--key-base: '" + noBase},
        {{"keys", "--key-base", "0x10"}, "--key-base: '0x10" + noBase},
        {{"keys", "--key-base", "+1"}, "--key-base: '+1" + noBase},
        {{"keys", "--key-base", "4294967296"}, "--key-base: '4294967296" + noBase},
        {{"keys", "--key-base", "1\n2"}, "--key-base: '1?2" + noBase},
        {{"keys", "--key-count", "257"}, "--key-count: '257' is not a number from 0 to 256"},
        {{"leds", "on", "--leds-on", "1,,2"}, "--leds-on: '" + noBase},
        {{"leds", "on", "--leds-on", "1,8"}, "--leds-on: there is no LED 8, the panel has 8"},
        {{"leds", "on", "--inverted-leds", "7,28,8"},
         "--inverted-leds: 8 is neither one of the 8 LEDs nor the backlight's GPIO 28"},
        {{"lamptest"}, "SECONDS is required"},
        {{"lamptest", "1.5"}, "SECONDS: '1.5' is not a number from 0 to 86400"},
        {{"demo", "--seconds", "86401"}, "--seconds: '86401' is not a number from 0 to 86400"},
        {{"demo", "--lamp-seconds", "x"}, "--lamp-seconds: 'x' is not a number from 0 to 86400"},

        {{"keys", "--panel", "indoor", "--key-base", "4294967294"},
         "keys (GPIO 4294967294 to 4294967296): the highest GPIO number is 4294967295"},
        {{"demo", "--panel", "indoor", "--led-base", "4294967288"},
         "backlight (GPIO 4294967296): the highest GPIO number is 4294967295"},
        {{"detect", "--id-base", "4294967293"},
         "ID lines (GPIO 4294967293 to 4294967296): the highest GPIO number is 4294967295"},
        {{"demo", "--panel", "indoor", "--led-base", "12"},
         "keys (GPIO 10 to 12) and LEDs (GPIO 12 to 19) overlap at GPIO 12"},
        {{"keys", "--key-base", "3"}, "ID lines (GPIO 4 to 7) and keys (GPIO 3 to 5) overlap at GPIO 4"},
        {{"print", "a", "--panel", "indoor", "--lcd-base", "16"},
         "backlight (GPIO 28) and LCD lines (GPIO 16 to 28) overlap at GPIO 28"},

        {{"keys", "--panel", "outdoor", "--key-count", "3"}, "--key-count: the outdoor panel has 2 keys"},
        {{"leds", "on", "--panel", "outdoor", "--led-count", "7"}, "--led-count: the outdoor panel has 8 LEDs"},
        {{"led", "0", "on", "--panel", "outdoor", "--inverted-leds", "0"},
         "--inverted-leds: the outdoor panel's LEDs are all active-high"},
        {{"demo", "--panel", "outdoor", "--leds-on", "0"}, "--leds-on: the outdoor panel's LEDs are all off at start"},
        {{"print", "a", "--panel", "outdoor"}, "the outdoor panel has no display"},

        {{"print"}, "LINE0 is required"},
        {{"print", "a", "b", "c", "d"}, "'d' is too much: the display has 3 lines"},
        {{"print", "a", "1234567890123456789012345\xC3\xA4"},
         "LINE1: the text has 26 characters, a line of the display 25"},
        {{"print", "a", "b", "\xC3"}, "LINE2: the text is not valid UTF-8"},
        {{"print", "a", "--invert", "3"}, "--invert: '3' is not a number from 0 to 2"},
        {{"print", "a", "--invert", "0", "--invert", "0:25"}, "--invert: '25' is not a number from 0 to 24"},
        {{"print", "a", "--invert", "0:1-25"}, "--invert: '25' is not a number from 0 to 24"},
        {{"print", "a", "--invert", "0:5-4"}, "--invert: '5-4' runs backwards"},
        {{"print", "a", "--invert", "0:"}, "--invert: '' is not a number from 0 to 24"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(joined(c.arguments));
        const Outcome outcome = run(c.arguments);
        EXPECT_EQ(outcome.err, "frontpanel: " + c.complaint + "\n");
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.pins, 0U);
    }
}

TEST(CommandLine, GoesOnToThePinsWithWhatCanBeAndReportsThatThereAreNone)
{
    const std::vector<Arguments> cases = {
        {"detect"},
        {"detect", "--panel", "outdoor"},
        {"keys"},
        {"--key-base", "0", "keys", "--key-count=1"},
        {"keys", "--lcd-base", "10"},
        {"led", "7", "off", "--led-base", "8"}, // no other line is used
        {"led", "010", "on", "--led-count", "11"},
        {"leds", "on", "--inverted-leds", "0,28"},
        {"leds", "off", "--led-base", "4294967288"},
        {"print", "demo", "[a,b]", "{}", "--invert", "0", "--invert", "2:24"},
        {"print", "--invert", "0", "-5", ""},
        {"print", "--", "--help"},
        {"lamptest", "0", "--panel", "outdoor", "--key-count", "2", "--led-count", "8"},
        {"lamptest", "86400", "--lcd-base", "20"}, // right for the outdoor panel, so that the ID lines are asked
        {"demo", "--panel", "indoor", "--seconds", "0", "--lamp-seconds", "0", "--leds-on", "7"},
    };
    for (const Arguments& arguments : cases) {
        SCOPED_TRACE(joined(arguments));
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.err, noGpio);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.pins, 1U);
    }
}

TEST(CommandLine, HelpsAndTellsItsVersion)
{
    EXPECT_EQ(run({"--version"}).out.rfind("frontpanel ", 0), 0U);
    const Outcome help = run({"--help"});
    EXPECT_EQ(help.status, 0);
    for (const char* command : {"detect", "keys", "led", "leds", "print", "lamptest", "demo"}) {
        SCOPED_TRACE(command);
        const std::string example = std::string("\n  frontpanel ") + command;
        EXPECT_NE(help.out.find(example), std::string::npos);
        const Outcome commandHelp = run({command, "--help"});
        EXPECT_EQ(commandHelp.status, 0);
        EXPECT_NE(commandHelp.out.find(example), std::string::npos);
    }
}

TEST(CommandLine, FailsWhenStandardOutputIsBrokenAndOnlyThen)
{
    const int standardOutput = dup(STDOUT_FILENO);
    const int full = open("/dev/full", O_WRONLY);
    ASSERT_GE(full, 0);
    dup2(full, STDOUT_FILENO);
    const char* arguments[] = {"frontpanel", "--version"};
    testing::internal::CaptureStderr();
    const int status = tools::runFrontpanel(2, arguments);
    const std::string err = testing::internal::GetCapturedStderr();
    dup2(standardOutput, STDOUT_FILENO);
    close(full);
    close(standardOutput);

    EXPECT_EQ(status, 1);
    EXPECT_EQ(err, "frontpanel: cannot write to standard output\n");
    EXPECT_EQ(run({"--version"}).status, 0);
}

} // namespace
