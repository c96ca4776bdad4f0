/* The tool as it is installed, on the kernel's own GPIO interfaces, with the module panel_gpio's lines under it. */
#include "panelsim/board/Board.h"
#include "panelsim/picture/PanelText.h"
#include "tests/kernel/Child.h"
#include "tests/kernel/ModuleBridge.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using panelsim::BoardConfig;
using panelsim::ChipVariant;

namespace {

const std::filesystem::path gpioDirectory = "/sys/class/gpio";
const std::filesystem::path moduleParameters = "/sys/module/panel_gpio/parameters";
constexpr unsigned heldLine = 63; // by the module itself, see the guest's init

std::string contentOf(const std::filesystem::path& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write(const std::filesystem::path& path, const std::string& text)
{
    std::ofstream file(path);
    file << text << std::flush;
    EXPECT_TRUE(file) << path;
}

std::string missedRequests()
{
    return contentOf(moduleParameters / "missed");
}

/** @return the number that the kernel has given to the module's first line */
unsigned findBase()
{
    for (const auto& entry : std::filesystem::directory_iterator(gpioDirectory)) {
        if (contentOf(entry.path() / "label") == "panel-gpio\n") {
            return static_cast<unsigned>(std::stoul(contentOf(entry.path() / "base")));
        }
    }
    throw std::runtime_error("no GPIO controller has the label panel-gpio");
}

unsigned firstNumber()
{
    static const unsigned base = findBase();
    return base;
}

/** @return the number that the kernel has given to a line of the module */
std::string number(unsigned offset)
{
    return std::to_string(firstNumber() + offset);
}

/** @return numbers of the lines that are exported */
std::vector<std::string> exportedLines()
{
    std::vector<std::string> lines;
    for (const auto& entry : std::filesystem::directory_iterator(gpioDirectory)) {
        if (std::filesystem::exists(entry.path() / "direction")) {
            lines.push_back(entry.path().filename().string().substr(4)); // after "gpio"
        }
    }
    return lines;
}

/** Waits for something, but not forever: when it does not come, the expectation fails. */
bool waitUntil(const std::function<bool()>& happened)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!happened() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return happened();
}

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

/** @return the lines about keys, each after a "|", once where a line repeats the one before */
std::string keyEvents(const std::string& output)
{
    std::istringstream lines(output);
    std::string events;
    std::string last;
    for (std::string line; std::getline(lines, line);) {
        if (line.substr(0, 4) == "key " && line != last) {
            events += "|" + line;
            last = line;
        }
    }
    return events;
}

const std::string edge = "───────────────────────────";
const std::string top = "┌" + edge + "┐\n";
const std::string bottom = "└" + edge + "┘\n";
const std::string blank = "│                           │\n";
const std::string inverted = "│ ^^^^^^^^^^^^^^^^^^^^^^^^^ │\n";
const std::string darkLeds = "LEDs ○ ○ ○ ○ ○ ○ ○ ○   keys  0   1   2\n";

/** @param base number of the module's first line */
std::string wiring(unsigned base = firstNumber())
{
    return " --id-base " + std::to_string(base + 4) + " --key-base " + std::to_string(base + 10) + " --led-base " +
           std::to_string(base + 20) + " --lcd-base " + std::to_string(base + 40);
}

/** @return the name that the kernel has given to the module's character device */
std::string device()
{
    return "/dev/" +
           std::filesystem::read_symlink(gpioDirectory / ("gpiochip" + number(0)) / "device").filename().string();
}

/** Starts frontpanel. @param words its arguments, with a blank between two; _ is a blank within one */
Child start(const std::string& words, const std::string& lines = wiring())
{
    std::vector<std::string> command = {"frontpanel"};
    std::istringstream stream(words + lines);
    for (std::string word; stream >> word;) {
        std::replace(word.begin(), word.end(), '_', ' ');
        command.push_back(word);
    }
    return Child(command);
}

Child::End run(const std::string& words, const std::string& lines = wiring())
{
    return start(words, lines).wait();
}

/** A panel on the module's lines. */
struct Rig {
    explicit Rig(const BoardConfig& config) : board(config), bridge(board) {}

    std::string drawn() const { return drawPanel(board.getConfig(), board.view(), panelsim::TextStyle::Plain); }

    /** Holds an operation on a line when it comes the nth time; an operation that is given no level has level 0. */
    void hold(panel_gpio_operation operation, unsigned line, unsigned level, unsigned nth)
    {
        bridge.hold([=, count = 0U](const panel_gpio_request& request) mutable {
            const bool matches = request.operation == operation && request.offset == line && request.value == level;
            return matches && ++count == nth;
        });
    }

    bool waitForHold() const
    {
        return waitUntil([this] { return bridge.isHolding(); });
    }

    panelsim::Board board;
    ModuleBridge bridge;
};

BoardConfig indoorBoard(ChipVariant chip)
{
    BoardConfig config;
    config.chip = chip;
    return config;
}

class KernelTest : public testing::Test {
protected:
    void TearDown() override
    {
        unsetenv("SYSFSGPIO_BACKEND");
        unsetenv("SYSFSGPIO_CONFIG");
        EXPECT_EQ(missedRequests(), "0\n") << "the board may not be as the kernel believes";
        EXPECT_EQ(exportedLines(), std::vector<std::string>());
    }
};

/** What holds on each of the kernel's interfaces. */
class BackendTest : public KernelTest, public testing::WithParamInterface<const char*> {
protected:
    void SetUp() override { setenv("SYSFSGPIO_BACKEND", GetParam(), 1); }
    bool isSysfs() const { return GetParam() == std::string("sysfs"); }
};

INSTANTIATE_TEST_SUITE_P(Kernel, BackendTest, testing::Values("chardev", "sysfs"),
                         [](const auto& test) { return std::string(test.param); });

TEST_P(BackendTest, DetectsTheFittedPanel)
{
    const struct {
        BoardConfig config;
        std::string name;
    } cases[] = {{BoardConfig(), "indoor"}, {panelsim::boardOf(panelsim::panelKind("outdoor")), "outdoor"}};
    for (const auto& row : cases) {
        const Rig rig(row.config);
        const Child::End end = run("detect");
        EXPECT_EQ(end.status, 0) << end.error;
        EXPECT_EQ(end.output, "INFO: detected " + row.name + " front panel type\n" + row.name + "\n");
    }
}

TEST_P(BackendTest, SwitchesTheLedsOfAnOutdoorPanel)
{
    const Rig rig(panelsim::boardOf(panelsim::panelKind("outdoor")));
    const struct {
        std::string words, leds;
    } cases[] = {{"leds on", "● ● ● ● ● ● ● ●"},
                 {"led 7 off", "● ● ● ● ● ● ● ○"},
                 {"leds off", "○ ○ ○ ○ ○ ○ ○ ○"},
                 {"led 3 on", "○ ○ ○ ● ○ ○ ○ ○"},
                 {"lamptest 0", "○ ○ ○ ○ ○ ○ ○ ○"}};
    for (const auto& row : cases) {
        const Child::End end = run(row.words);
        EXPECT_EQ(end.status, 0) << end.error;
        EXPECT_EQ(rig.drawn(), "LEDs " + row.leds + "   keys  0   1\n") << row.words;
    }
}

TEST_P(BackendTest, ReportsKeysAndRepeatsThemWhileTheyAreHeld)
{
    for (const BoardConfig& config : {panelsim::boardOf(panelsim::panelKind("outdoor")), BoardConfig()}) {
        const unsigned last = config.keyCount - 1;
        const std::string key = "key " + std::to_string(last) + " ";
        Rig rig(config);
        rig.hold(PANEL_GPIO_GET, config.keyGpioBase + last, 0, 5); // keys are polled by then
        Child keys = start("keys");
        EXPECT_TRUE(rig.waitForHold());
        rig.board.press(last);
        rig.bridge.letGo();
        EXPECT_TRUE(waitUntil([&] {
            const std::string text = keys.output();
            const std::string repeated = key + "repeated\n";
            return text.find(repeated) != text.rfind(repeated);
        }));
        rig.board.release(last);
        EXPECT_TRUE(waitUntil([&] { return contains(keys.output(), key + "released\n"); }));
        rig.board.press(0);
        EXPECT_TRUE(waitUntil([&] { return contains(keys.output(), "key 0 repeated\n"); }));
        keys.sendSignal(SIGTERM);
        const Child::End end = keys.wait();
        EXPECT_EQ(end.status, 0);
        EXPECT_EQ(keyEvents(end.output),
                  "|" + key + "pressed|" + key + "repeated|" + key + "released|key 0 pressed|key 0 repeated");
        EXPECT_EQ(end.error, "");
    }
}

TEST_P(BackendTest, ShowsThePageThatIsPrinted)
{
    for (const ChipVariant chip : {ChipVariant::Ra8803, ChipVariant::Ra8806}) {
        const Rig rig(indoorBoard(chip));
        const auto begin = std::chrono::steady_clock::now();
        const Child::End end = run("print Grüße_an_alle,_21.5_°C _ ñ~!_1234567890_abcdefghij "
                                   "--invert 0:0-4 --invert 1:24 --invert 2");
        const auto time = std::chrono::steady_clock::now() - begin;
        EXPECT_EQ(end.status, 0) << end.error;
        EXPECT_EQ(rig.drawn(), top + "│ Grüße an alle, 21.5 °C    │\n│ ^^^^^                     │\n" + blank +
                                   "│                         ^ │\n│ ñ~! 1234567890 abcdefghij │\n" + inverted +
                                   bottom + "display on, backlight on" +
                                   (chip == ChipVariant::Ra8803 ? ", contrast 15/31\n" : "\n") + darkLeds);
        EXPECT_EQ(rig.board.busFaultCount(), 0U);
        std::cout << "measured: by " << GetParam() << " the start and a page take "
                  << std::chrono::duration_cast<std::chrono::milliseconds>(time).count() << " ms and "
                  << rig.bridge.answered() << " operations\n";
    }
}

TEST_P(BackendTest, TakesInvertedLedsToTheirLevelWithoutAnyOther)
{
    BoardConfig config;
    config.invertedLeds = {1, 6};
    config.backlightInverted = true;
    Rig rig(config);
    std::map<unsigned, std::string> levels; // in the order in which they came; z = not driven
    rig.board.observe([&](const panelsim::LineChange& change) {
        if (change.gpio >= 20 && change.gpio <= 28) {
            levels[change.gpio] += "01z"[static_cast<int>(change.level)];
        }
    });
    for (const std::string words : {"leds off", "led 6 on", "led 0 on", "leds off", "print x --panel indoor"}) {
        const Child::End end = run(words + " --inverted-leds 1,6," + number(28));
        EXPECT_EQ(end.status, 0) << end.error;
    }
    rig.board.observe(nullptr);
    const std::map<unsigned, std::string> expected = {{20, "z010"}, {21, "z1"},   {22, "z0"}, {23, "z0"}, {24, "z0"},
                                                      {25, "z0"},   {26, "z101"}, {27, "z0"}, {28, "z10"}};
    EXPECT_EQ(levels, expected);
}

TEST_P(BackendTest, ShowsTheRightPageAfterAKillInTheMiddleOfAnother)
{
    const unsigned writeStrobe = 51;
    const unsigned reset = 52;
    const unsigned char cursorColumn = 0x60; // register
    for (const unsigned level : {0U, 1U}) {  // of the strobe, in which it is left
        Rig rig(indoorBoard(ChipVariant::Ra8806));
        rig.hold(PANEL_GPIO_SET, writeStrobe, level, 150);
        Child killed = start("print Killed_while_it_prints Killed_while_it_prints x --invert 0 --invert 1");
        EXPECT_TRUE(rig.waitForHold());
        killed.sendSignal(SIGKILL);
        rig.bridge.letGo();
        EXPECT_EQ(killed.wait().status, 128 + SIGKILL);
        EXPECT_EQ(rig.board.lineLevel(writeStrobe), level == 0 ? panelsim::LineLevel::Low : panelsim::LineLevel::High);
        EXPECT_EQ(exportedLines().size(), isSysfs() ? 14U : 0U);
        EXPECT_GT(rig.board.lcdRegister(cursorColumn), 0U) << "not in the middle of a line";

        rig.hold(PANEL_GPIO_SET, reset, 0, 1);
        Child next = start("print Here_again --invert 0:5-9");
        EXPECT_TRUE(rig.waitForHold());
        rig.board.clearBusFaults(); // of a strobe that nobody ended; the reset makes the chip forget it
        rig.bridge.letGo();
        const Child::End end = next.wait();
        EXPECT_EQ(end.status, 0) << end.error;
        EXPECT_EQ(rig.drawn(), top + "│ Here again                │\n│      ^^^^^                │\n" + blank + blank +
                                   bottom + "display on, backlight on\n" + darkLeds);
        EXPECT_EQ(rig.board.busFaultCount(), 0U);
        for (const std::string& line : exportedLines()) { // by the one that was killed, so they are left as found
            write(gpioDirectory / "unexport", line);
        }
    }
}

TEST_P(BackendTest, SaysInOneLineWhyALineIsNotAvailable)
{
    Rig rig{BoardConfig()};
    rig.hold(PANEL_GPIO_GET, 10, 0, 5);
    Child other = start("keys --key-count 1");
    EXPECT_TRUE(rig.waitForHold());
    rig.bridge.letGo();
    const std::string busy = "): Device or resource busy";
    const std::string held = isSysfs()
                                 ? "cannot write /sys/class/gpio/export (the kernel or a driver holds the line, see "
                                   "/sys/kernel/debug/gpio"
                                 : "cannot request line 63 of " + device() + " (in use by 'held-by-module'";
    const std::string taken =
        isSysfs() ? "cannot lock /sys/class/gpio/gpio" + number(10) + "/value (in use by another process or pin object"
                  : "cannot request line 10 of " + device() + " (in use by 'libsysfsgpio'";
    const struct {
        std::string words, line, error;
    } cases[] = {
        {"led 0 on --led-base ", number(heldLine), held + busy},
        {"led 0 on --led-base ", "999999", "no chip has this number, see 'frontpanel chips': Invalid argument"},
        {"keys --key-count 1 --key-base ", number(10), taken + busy},
    };
    for (const auto& row : cases) {
        const Child::End end = run(row.words, row.line);
        EXPECT_EQ(end.status, 1);
        EXPECT_EQ(end.output, "");
        EXPECT_EQ(end.error, "frontpanel: GPIO " + row.line + ": " + row.error + "\n");
    }
    const std::string users = contentOf("/sys/kernel/debug/gpio"); // which the first error refers to
    const std::string self = isSysfs() ? "sysfs       " : "libsysfsgpio";
    for (const std::string& user : {number(10) + " (                    |" + self + "        )",
                                    number(heldLine) + " (                    |held-by-module      )"}) {
        EXPECT_TRUE(contains(users, " gpio-" + user)) << users;
    }
    other.sendSignal(SIGTERM);
    EXPECT_EQ(other.wait().status, 0);
}

TEST_P(BackendTest, FailsWhenTheHardwareDoesNotAnswer)
{
    const std::string action =
        isSysfs() ? "write /sys/class/gpio/gpio" + number(23) + "/direction" : "configure line 23 of " + device();
    const std::string error = "frontpanel: GPIO " + number(23) + ": cannot " + action + ": Input/output error\n";
    EXPECT_EQ(run("led 3 on").error, error) << "nobody has the device open";
    EXPECT_EQ(missedRequests(), "1\n");

    Rig rig(panelsim::boardOf(panelsim::panelKind("outdoor")));
    EXPECT_EQ(run("led 3 on").error, error) << "until the module is reset";
    EXPECT_EQ(missedRequests(), "1\n");
    write(moduleParameters / "missed", "0");
    if (!isSysfs()) {
        return; // the rest is up to the kernel and the module alone
    }

    write(gpioDirectory / "export", number(24)); // so that the first request of "led 4 on" is to make it an output

    // The kernel cannot tell a process that a level was not set; the module can.
    write(moduleParameters / "timeout_ms", "2000");
    rig.hold(PANEL_GPIO_SET, 23, 1, 1);
    EXPECT_EQ(run("led 3 on").status, 0);
    EXPECT_EQ(missedRequests(), "1\n");
    write(moduleParameters / "missed", "0");
    write(moduleParameters / "timeout_ms", "10000");

    Child late = start("led 4 on");
    EXPECT_TRUE(waitUntil([&late] { return late.isInKernel(); }));
    rig.bridge.letGo(); // the reply comes too late, and is for none of the other requests
    EXPECT_EQ(late.wait().status, 0);
    write(gpioDirectory / "unexport", number(24));
    EXPECT_EQ(rig.drawn(), "LEDs ○ ○ ○ ● ● ○ ○ ○   keys  0   1\n");
}

TEST_P(BackendTest, LetsAUserInTheGroupUseTheLines)
{
    const auto runAs = [](const std::string& user, const std::string& words) {
        return Child({"su", "-s", "/bin/sh", "-c", "frontpanel " + words + wiring(), user}).wait();
    };
    const Child udev({"/lib/systemd/systemd-udevd"});
    EXPECT_TRUE(waitUntil([] { return std::filesystem::exists("/run/udev/control"); }));
    EXPECT_EQ(Child({"udevadm", "trigger", "--action=add", "--subsystem-match=gpio"}).wait().status, 0);
    EXPECT_EQ(Child({"udevadm", "settle"}).wait().status, 0);

    const Rig rig(indoorBoard(ChipVariant::Ra8803));
    const Child::End stranger = runAs("stranger", "detect");
    EXPECT_EQ(stranger.status, 1);
    EXPECT_EQ(stranger.error, "frontpanel: GPIO " + number(4) + ": cannot open " +
                                  (isSysfs() ? "/sys/class/gpio/export" : device()) +
                                  " (run as root or in the group that owns the file): Permission denied\n");
    const Child::End detected = runAs("operator", "detect");
    EXPECT_EQ(detected.status, 0) << detected.error;
    EXPECT_TRUE(contains(detected.output, "\nindoor\n")) << detected.output;
    const Child::End printed = runAs("operator", "print 'Not root'");
    EXPECT_EQ(printed.status, 0) << printed.error;
    EXPECT_TRUE(contains(rig.drawn(), "│ Not root                  │\n")) << rig.drawn();
}

TEST_F(KernelTest, PrefersTheCharacterDeviceAndLeavesExportedLinesExported)
{
    Rig rig(panelsim::boardOf(panelsim::panelKind("outdoor")));
    const auto userOfKey0 = [&rig] {
        rig.hold(PANEL_GPIO_GET, 10, 0, 5);
        Child keys = start("keys");
        EXPECT_TRUE(rig.waitForHold());
        rig.bridge.letGo();
        std::string users = contentOf("/sys/kernel/debug/gpio");
        keys.sendSignal(SIGTERM);
        EXPECT_EQ(keys.wait().status, 0);
        users.erase(0, users.find(" gpio-" + number(10)));
        return users.substr(0, users.find('\n'));
    };
    EXPECT_TRUE(contains(userOfKey0(), "|libsysfsgpio "));
    write(gpioDirectory / "export", number(10));
    EXPECT_TRUE(contains(userOfKey0(), "|sysfs "));
    EXPECT_EQ(exportedLines(), std::vector<std::string>{number(10)});
    setenv("SYSFSGPIO_BACKEND", "chardev", 1);
    EXPECT_EQ(run("keys").error, "frontpanel: GPIO " + number(10) + ": cannot request line 10 of " + device() +
                                     " (exported in /sys/class/gpio): File exists\n");
    write(gpioDirectory / "unexport", number(10));
}

TEST_F(KernelTest, NumbersLinesByAFileOrWithoutSysfs)
{
    const Rig rig(indoorBoard(ChipVariant::Ra8806));
    const std::string chips = run("chips", "").output;
    EXPECT_TRUE(contains(chips, "\n" + number(0) + " panel-gpio # to " + number(63) + " by /sys/class/gpio/gpiochip"))
        << chips;
    write("/tmp/chips", "1000 panel-gpio # moved\n");
    setenv("SYSFSGPIO_CONFIG", "/tmp/chips", 1);
    EXPECT_TRUE(contains(run("chips", "").output, "\n1000 panel-gpio # to 1063 by /tmp/chips:1: "));
    setenv("SYSFSGPIO_BACKEND", "sysfs", 1);
    EXPECT_EQ(run("led 3 on", wiring(1000)).error, "");
    unsetenv("SYSFSGPIO_BACKEND");
    EXPECT_TRUE(contains(rig.drawn(), "LEDs ○ ○ ○ ● ○")) << rig.drawn();

    EXPECT_EQ(Child({"mount", "-t", "tmpfs", "none", gpioDirectory}).wait().status, 0);
    const Child::End printed = run("print No_sysfs", wiring(1000));
    EXPECT_EQ(printed.status, 0) << printed.error;
    EXPECT_TRUE(contains(rig.drawn(), "│ No sysfs                  │\n")) << rig.drawn();
    EXPECT_EQ(rig.board.busFaultCount(), 0U);
    unsetenv("SYSFSGPIO_CONFIG");
    const Child::End detected = run("detect", wiring(8)); // after the 8 lines of the machine's own chip
    EXPECT_TRUE(contains(detected.output, "\nindoor\n")) << detected.error;
    EXPECT_EQ(Child({"umount", gpioDirectory}).wait().status, 0);
}

TEST_F(KernelTest, RunsAnApplicationOnTheSimulatedPanel)
{
    const Child::End end =
        Child({"panelsim", "--scenario", "indoor.yaml", "--timeout", "2m", "--", "./IndoorExample"}).wait();
    EXPECT_EQ(end.status, 0) << end.output << end.error;
}

} // namespace
