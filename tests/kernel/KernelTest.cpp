/* The installed tool on the kernel's GPIO interfaces, with a simulated board behind the lines of module panel_gpio. */
#include "panelsim/board/Board.h"
#include "panelsim/picture/PanelText.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <initializer_list>
#include <map>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using panelsim::BoardConfig;
using panelsim::ChipVariant;

namespace {

/** A shell command that runs next to the tests. */
class Process {
public:
    explicit Process(const std::string& command) : pid(fork())
    {
        if (pid == 0) {
            execl("/bin/sh", "sh", "-c", ("exec >/tmp/$$ 2>&1; " + command).c_str(), nullptr);
            _exit(127);
        }
    }

    /** @return what it has written up to now, without the library's messages */
    std::string output() const
    {
        std::ifstream file("/tmp/" + std::to_string(pid));
        std::string text;
        for (std::string line; std::getline(file, line);) {
            text += line.rfind("INFO: ", 0) == 0 ? "" : line + "\n";
        }
        return text;
    }

    void send(int signal) const { kill(pid, signal); }

    /** Waits for its end. @return status and output, with a blank between them */
    std::string end() const
    {
        int status = 0;
        waitpid(pid, &status, 0);
        return std::to_string(WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status)) + " " + output();
    }

private:
    pid_t pid;
};

std::string run(const std::string& command)
{
    return Process(command).end();
}

/** A board behind the module's lines, whose numbers are the board's. There is one at a time. */
class Rig {
public:
    /** As the module writes it: i makes the line an input, o an output of that level; s sets its level, g gets it. */
    struct Operation {
        char letter;
        unsigned char gpio;
        bool level;
    };

    explicit Rig(const BoardConfig& config) : board(config)
    {
        current = this;
        static const bool serving = (std::thread(serve).detach(), true);
        EXPECT_TRUE(serving);
    }
    ~Rig() { current = nullptr; }

    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;

    std::string drawn() const { return drawPanel(board.getConfig(), board.view(), panelsim::TextStyle::Plain); }

    panelsim::Board board;
    std::function<void(const Operation&)> before = [](const Operation&) {}; ///< each operation, on another thread

private:
    static void serve()
    {
        const int device = open("/dev/panel-gpio", O_RDWR | O_CLOEXEC);
        Operation operation{};
        while (read(device, &operation, sizeof operation) == sizeof operation) {
            const int result = current.load()->perform(operation);
            if (write(device, &result, sizeof result) != sizeof result) {
                break;
            }
        }
        std::abort();
    }

    int perform(const Operation& operation)
    {
        before(operation);
        switch (operation.letter) {
        case 'i':
            board.makeInput(operation.gpio);
            return 0;
        case 'o':
            board.makeOutput(operation.gpio, operation.level);
            return 0;
        case 's':
            board.drive(operation.gpio, operation.level);
            return 0;
        default:
            return board.read(operation.gpio) ? 1 : 0;
        }
    }

    static inline std::atomic<Rig*> current;
};

bool waitUntil(const std::function<bool()>& happened)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!happened() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return happened();
}

BoardConfig indoorBoard(ChipVariant chip)
{
    BoardConfig config;
    config.chip = chip;
    return config;
}

/** @return how an indoor panel is drawn when its LCD has these rows and its LEDs are these */
std::string drawnPage(std::initializer_list<std::string> rows, const std::string& contrast = "",
                      const std::string& leds = "○ ○ ○ ○ ○ ○ ○ ○")
{
    const std::string edge = "───────────────────────────";
    std::string text = "┌" + edge + "┐\n";
    for (const std::string& row : rows) {
        text += "│ " + row + std::string(25 - row.size(), ' ') + " │\n";
    }
    return text + "└" + edge + "┘\ndisplay on, backlight on" + contrast + "\nLEDs " + leds + "   keys  0   1   2\n";
}

class KernelTest : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(run("find /sys/class/gpio/ -name 'gpio[0-9]*'"), "0 ") << "left exported"; }
};

/** What holds on each of the kernel's interfaces. */
class BackendTest : public KernelTest, public testing::WithParamInterface<const char*> {
protected:
    void SetUp() override { setenv("SYSFSGPIO_BACKEND", GetParam(), 1); }
    void TearDown() override
    {
        unsetenv("SYSFSGPIO_BACKEND");
        KernelTest::TearDown();
    }
    bool isSysfs() const { return GetParam() == std::string("sysfs"); }
};

INSTANTIATE_TEST_SUITE_P(Kernel, BackendTest, testing::Values("chardev", "sysfs"),
                         [](const auto& test) { return std::string(test.param); });

TEST_P(BackendTest, DetectsAPanelSwitchesItsLedsAndShowsAPage)
{
    const std::string print = "print 'Hello everybody, 21.5 C' '' '~! 1234567890 abcdefghijk' "
                              "--invert 0:0-4 --invert 1:24 --invert 2";
    const auto page = [](const std::string& contrast) {
        return drawnPage({"Hello everybody, 21.5 C", "^^^^^", "", "                        ^",
                          "~! 1234567890 abcdefghijk", "^^^^^^^^^^^^^^^^^^^^^^^^^"},
                         contrast);
    };
    const BoardConfig outdoor = boardOf(panelsim::panelKind("outdoor"));
    const struct {
        BoardConfig config;
        std::string command, result, drawn;
    } cases[] = {
        {outdoor, "detect", "outdoor\n", "LEDs ○ ○ ○ ○ ○ ○ ○ ○   keys  0   1\n"},
        {outdoor, "leds on", "", "LEDs ● ● ● ● ● ● ● ●   keys  0   1\n"},
        {outdoor, "led 3 on", "", "LEDs ○ ○ ○ ● ○ ○ ○ ○   keys  0   1\n"},
        {indoorBoard(ChipVariant::Ra8803), print, "", page(", contrast 15/31")},
        {indoorBoard(ChipVariant::Ra8806), print, "", page("")},
    };
    for (const auto& row : cases) {
        const Rig rig(row.config);
        EXPECT_EQ(run("frontpanel " + row.command), "0 " + row.result);
        EXPECT_EQ(rig.drawn(), row.drawn) << row.command;
        EXPECT_EQ(rig.board.busFaultCount(), 0U);
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
        EXPECT_EQ(run("frontpanel " + words + " --inverted-leds 1,6,28"), "0 ");
    }
    rig.board.observe(nullptr);
    const std::map<unsigned, std::string> expected = {{20, "z010"}, {21, "z1"},   {22, "z0"}, {23, "z0"}, {24, "z0"},
                                                      {25, "z0"},   {26, "z101"}, {27, "z0"}, {28, "z10"}};
    EXPECT_EQ(levels, expected);
}

TEST_P(BackendTest, ShowsTheRightPageAfterAKillInTheMiddleOfAnother)
{
    constexpr unsigned char writeStrobe = 51;
    constexpr unsigned char reset = 52;
    for (const bool level : {false, true}) { // of the strobe, in which it is left
        std::promise<void> inTheMiddle;
        std::promise<void> killed;
        Rig rig{BoardConfig()};
        rig.before = [&, count = 0](const Rig::Operation& operation) mutable {
            if (operation.letter == 's' && operation.gpio == writeStrobe && operation.level == level &&
                ++count == 150) {
                inTheMiddle.set_value();
                killed.get_future().wait();
            }
        };
        const Process victim(
            "exec frontpanel print 'Killed while it prints' 'Killed while it prints' x --invert 0 --invert 1");
        EXPECT_EQ(inTheMiddle.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
        victim.send(SIGKILL);
        killed.set_value();
        EXPECT_EQ(victim.end().substr(0, 3), "137");
        EXPECT_EQ(rig.board.lineLevel(writeStrobe), level ? panelsim::LineLevel::High : panelsim::LineLevel::Low);
        EXPECT_GT(rig.board.lcdRegister(0x60), 0U) << "not in the middle of a line: the cursor's column";

        const std::string left = run("ls /sys/class/gpio | grep -c 'gpio[0-9]'");
        EXPECT_EQ(left.substr(2), isSysfs() ? "14\n" : "0\n");
        rig.before = [&](const Rig::Operation& operation) {
            if (operation.letter == 's' && operation.gpio == reset && !operation.level) {
                rig.board.clearBusFaults(); // of a strobe that nobody ended; the reset makes the chip forget it
            }
        };
        // Lines that are exported are used in sysfs and left as they are, unless a backend is forced.
        EXPECT_EQ(run("SYSFSGPIO_BACKEND= frontpanel print 'Here again' --invert 0:5-9 --panel indoor"), "0 ");
        EXPECT_EQ(rig.drawn(), drawnPage({"Here again", "     ^^^^^", "", ""}));
        EXPECT_EQ(rig.board.busFaultCount(), 0U);
        EXPECT_EQ(run("ls /sys/class/gpio | grep -c 'gpio[0-9]'"), left);
        run("cd /sys/class/gpio && for line in gpio[0-9]*; do echo ${line#gpio} >unexport; done");
    }
}

TEST_P(BackendTest, LetsAUserInTheGroupUseTheLines)
{
    const Rig rig{BoardConfig()};
    EXPECT_EQ(run("/lib/systemd/systemd-udevd --daemon && udevadm settle &&"
                  "udevadm trigger --settle --action=add --subsystem-match=gpio")
                  .substr(0, 1),
              "0");
    EXPECT_EQ(run("su -s /bin/sh -c 'frontpanel detect' stranger"),
              std::string("1 frontpanel: GPIO 4: cannot open ") +
                  (isSysfs() ? "/sys/class/gpio/export" : "/dev/gpiochip1") +
                  " (run as root or in the group that owns the file): Permission denied\n");
    EXPECT_EQ(run("su -s /bin/sh -c 'frontpanel print Operator --panel indoor' operator"), "0 ");
    EXPECT_EQ(rig.drawn(), drawnPage({"Operator", "", ""}));
    EXPECT_EQ(run("udevadm control --exit"), "0 ");
}

TEST_F(KernelTest, GivesALineToOneProcessByTheCharacterDeviceUnlessItIsForced)
{
    const std::string requested = "cannot request line 10 of /dev/gpiochip1 (";
    const std::string busy = "): Device or resource busy\n";
    const std::string taken = requested + "in use by 'libsysfsgpio'" + busy;
    const std::string exported = requested + "exported in /sys/class/gpio): File exists";
    const std::string locked =
        "cannot lock /sys/class/gpio/gpio10/value (in use by another process or pin object" + busy;
    const struct {
        std::string first, second, error;
    } cases[] = {
        {"", "", taken},
        {"chardev", "chardev", taken},
        {"chardev", "sysfs",
         "cannot write /sys/class/gpio/export (the kernel or a driver holds the line, see /sys/kernel/debug/gpio" +
             busy},
        {"sysfs", "", exported + "; " + locked},
        {"sysfs", "chardev", exported + "\n"},
        {"sysfs", "sysfs", locked},
    };
    for (const auto& row : cases) {
        Rig rig(boardOf(panelsim::panelKind("outdoor")));
        const Process first("exec env SYSFSGPIO_BACKEND=" + row.first + " frontpanel keys");
        EXPECT_TRUE(waitUntil([&] { return rig.board.keyReads(1) > 5; })) << "keys are not polled";
        EXPECT_EQ(run("SYSFSGPIO_BACKEND=" + row.second + " frontpanel keys"), "1 frontpanel: GPIO 10: " + row.error);
        rig.board.press(1);
        EXPECT_TRUE(waitUntil([&] { return first.output().rfind("key 1 pressed\n", 0) == 0; })) << first.output();
        first.send(SIGTERM);
        EXPECT_EQ(first.end().substr(0, 2), "0 ");
    }
}

TEST_F(KernelTest, NumbersLinesByAFileOrWithoutSysfs)
{
    const std::string withFile = "SYSFSGPIO_CONFIG=/tmp/chips ";
    const std::string chip = "gpiochip1, label 'panel-gpio', 64 lines\n";
    const struct {
        std::string command, output;
    } cases[] = {
        {"frontpanel chips | grep panel-gpio", "0 panel-gpio # to 63 by /sys/class/gpio/gpiochip0/base: " + chip},
        {"echo '1000 panel-gpio # moved' >/tmp/chips", ""},
        {withFile + "frontpanel chips | grep panel-gpio", "1000 panel-gpio # to 1063 by /tmp/chips:1: " + chip},
        {withFile + "SYSFSGPIO_BACKEND=sysfs frontpanel led 3 on --led-base 1020", ""},
        {"mount -t tmpfs none /sys/class/gpio", ""},
        {withFile + "frontpanel led 5 on --led-base 1020", ""},
        {"frontpanel led 6 on --led-base 28", ""}, // after the 8 lines of the machine's own chip
        {"echo '0 panel-gpio' >/tmp/chips", ""},
        {withFile + "frontpanel print Hidden --panel indoor", ""},
        {"umount /sys/class/gpio", ""},
    };
    const Rig rig{BoardConfig()};
    for (const auto& row : cases) {
        EXPECT_EQ(run(row.command), "0 " + row.output) << row.command;
    }
    EXPECT_EQ(rig.drawn(), drawnPage({"Hidden", "", ""}, "", "○ ○ ○ ● ○ ● ● ○"));
    EXPECT_EQ(rig.board.busFaultCount(), 0U);
}

} // namespace
