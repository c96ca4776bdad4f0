/* The installed tool on the kernel's GPIO interfaces, with a simulated board behind the lines of module panel_gpio. */
#include "panelsim/board/Board.h"
#include "panelsim/picture/PanelText.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>
#include <regex>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <utility>
#include <vector>

using namespace panelsim;

static std::optional<Board> board; // behind the module's lines, whose numbers are the board's

/** Does with the board what the module sends. */
static void serve(int module)
{
    for (unsigned char operation[2]; recv(module, operation, sizeof operation, 0) == sizeof operation;) {
        const auto [gpio, action] = operation;
        const unsigned char result = action == 3 && board->read(gpio) ? 1 : 0;
        if (action < 2) {
            board->makeOutput(gpio, action == 1);
        } else if (action == 2) {
            board->makeInput(gpio);
        }
        send(module, &result, sizeof result, 0);
    }
}

/** Runs a shell command. @return its status and, after a blank, what it prints, without the library's messages */
static std::string run(const std::string& command)
{
    FILE* const output = popen(("exec 2>&1; " + command + "\nexit $?").c_str(), "r");
    std::string text(10000, ' ');
    text.resize(fread(text.data(), 1, text.size(), output));
    return std::to_string(WEXITSTATUS(pclose(output))) + " " + std::regex_replace(text, std::regex("INFO: .*\n"), "");
}

/** @return the panel as text, without the frame of its display */
static std::string drawn()
{
    const std::string panel = drawPanel(board->getConfig(), board->view(), TextStyle::Plain);
    return std::regex_replace(panel, std::regex(" *(│|┌|─|┐|└|┘) ?"), "");
}

struct KernelTest : testing::Test {
    static void SetUpTestSuite()
    {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
        std::thread(serve, ends[0]).detach();
        ASSERT_EQ(run("insmod /tests/panel_gpio.ko descriptor=" + std::to_string(ends[1])), "0 ");
    }
    void TearDown() override { EXPECT_EQ(run("ls /sys/class/gpio | grep 'gpio[0-9]'"), "1 ") << "left exported"; }
};

TEST_F(KernelTest, ShowsTheRightPageAfterAKillInTheMiddleOfAnother)
{
    for (const std::string backend : {"chardev", "sysfs"}) {
        for (const LineLevel strobe : {LineLevel::Low, LineLevel::High}) { // in which it is left
            board.emplace(BoardConfig());
            board->observe([&, strobes = 0](const LineChange& change) mutable {
                if (change.gpio == 51 && change.level == strobe && ++strobes == 150) {
                    run("killall -KILL frontpanel");
                }
            });
            const std::string print = " frontpanel print 'Killed as it prints' 'Killed' --invert 0 --invert 1";
            EXPECT_EQ(run("SYSFSGPIO_BACKEND=" + backend + print), "137 Killed\n");
            EXPECT_EQ(board->lineLevel(51), strobe);
            EXPECT_GT(board->lcdRegister(0x60), 0U) << "not in the middle of a line: the cursor's column";

            // Lines that are exported are used in sysfs and left as they are, unless a backend is forced.
            EXPECT_EQ(run("frontpanel print 'Here again' --invert 0:5-9 --panel indoor"), "0 ");
            EXPECT_EQ(drawn().find("\nHere again\n     ^^^^^\n\n\n\ndisplay on, backlight on\nLEDs"), 0U) << drawn();
            run("cd /sys/class/gpio; for line in gpio[0-9]*; do echo ${line#gpio} >unexport; done");
        }
    }
}

TEST_F(KernelTest, GivesALineToOneProcess)
{
    const std::string busy = "): Device or resource busy\n";
    const std::string request = "cannot request line 10 of /dev/gpiochip1 (";
    const std::string rows[][3] = {
        {"", "chardev", request + "in use by 'libsysfsgpio'" + busy},
        {"chardev", "sysfs",
         "cannot write /sys/class/gpio/export (the kernel or a driver holds the line, see /sys/kernel/debug/gpio" +
             busy},
    };
    const auto waitForPolls = [] {
        for (const auto before = board->keyReads(1); board->keyReads(1) < before + 5;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    };
    for (const auto& [first, second, error] : rows) {
        board.emplace(boardOf(panelKind("outdoor")));
        run("SYSFSGPIO_BACKEND=" + first + " frontpanel keys >/dev/null 2>&1 &");
        waitForPolls();
        EXPECT_EQ(run("SYSFSGPIO_BACKEND=" + second + " frontpanel keys"), "1 frontpanel: GPIO 10: " + error);
        waitForPolls();
        run("killall frontpanel; while pidof frontpanel; do usleep 1000; done");
    }
}

// The last one, since all would be slower with udev.
TEST_F(KernelTest, UsersInTheGroupOperateAPanel)
{
    BoardConfig config;
    config.chip = ChipVariant::Ra8803;
    config.invertedLeds = {1, 6};
    config.backlightInverted = true;
    run("/lib/systemd/systemd-udevd --daemon && udevadm trigger --settle --action=add --subsystem-match=gpio");
    for (const auto& [backend, file] : {std::pair("chardev", "/dev/gpiochip1"), {"sysfs", "/sys/class/gpio/export"}}) {
        setenv("SYSFSGPIO_BACKEND", backend, 1);
        board.emplace(config);
        std::string levels[64]; // of each line, in the order in which they came; z = not driven
        board->observe([&](const LineChange& change) { levels[change.gpio] += "01z"[static_cast<int>(change.level)]; });
        EXPECT_EQ(run("su -s /bin/sh -c 'frontpanel detect' stranger"),
                  std::string("1 frontpanel: GPIO 4: cannot open ") + file +
                      " (run as root or in the group that owns the file): Permission denied\n");
        EXPECT_EQ(run("su -s /bin/sh -c 'on() { frontpanel \"$@\" --inverted-leds 1,6,28; }; on leds off &&"
                      "on led 6 on && on led 0 on && on leds off && on print \"Hello everybody, 21.5 C\" \"\" "
                      "\"~! 1234567890 abcdefghijk\" --invert 0:0-4 --invert 1:24 --invert 2' operator"),
                  "0 ");
        EXPECT_EQ(drawn(), "\nHello everybody, 21.5 C\n^^^^^\n\n                        ^\n~! 1234567890 abcdefghijk\n"
                           "^^^^^^^^^^^^^^^^^^^^^^^^^\n\ndisplay on, backlight on, contrast 15/31\n"
                           "LEDs ○ ○ ○ ○ ○ ○ ○ ○   keys  0   1   2\n");
        EXPECT_EQ(board->busFaultCount(), 0U);
        const std::vector<std::string> lights = {"z010", "z1", "z0", "z0", "z0", "z0", "z101", "z0", "z10"};
        EXPECT_EQ(std::vector<std::string>(levels + 20, levels + 29), lights);
    }
}
