#include "sysfs/ExportGpio.h"

#include "tests/sysfs/FakeKernel.h"

#include <cerrno>
#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <regex>
#include <string>
#include <vector>

using Chips = std::vector<FakeKernel::Chip>;
const auto none = std::optional<unsigned>();
const std::map<unsigned long, std::string> exported = {{40, "sysfs"}};
const std::map<unsigned long, std::string> used = {{40, "another"}};
const Chips bank = {{"gpiochip0", "bank", 64, 32}};
const Chips two = {{"gpiochip0", "a", 32, 512, "soc"}, {"gpiochip1", "b", 8, 544, "i2c"}};
const Chips renumbered = {{"gpiochip0", "b", 8, 544, "i2c"}, {"gpiochip1", "a", 32, 512, ""}};
const Chips twins = {{"gpiochip0", "a", 32, 512}, {"gpiochip1", "a", 32, 544}};
const Chips siblings = {{"gpiochip0", "a", 32, 512}, {"gpiochip1", "b", 32, 544}, {"gpiochip2", "b", 8, 576}};
const std::string longLabel = "a label of more than thirty-one bytes";
const Chips withoutBases = {{"gpiochip10", "c", 4, 100, "", none}, {"gpiochip2", longLabel, 1, 200, "", none}};

const std::string file = "/etc/sysfsgpio.conf";
const std::string invalid = ": Invalid argument";
const std::string unknown = ": no chip has this number, see 'frontpanel chips'" + invalid;
const std::string noPair = ": this is not a base and a chip's label or name" + invalid;
const std::string group = " (run as root or in the group that owns the file)";
const std::string denied = ": Permission denied";
const std::string noDevice = "GPIO 40: cannot open /dev/gpiochip0" + group + denied;
const std::string line8 = "GPIO 40: cannot request line 8 of /dev/gpiochip0";
const std::string noBase = "GPIO 1: cannot use /sys/class/gpio/export (no base there is known to be that of gpiochip1)";

const struct {
    unsigned number;
    std::string expected; // who uses the line, and its number in the kernel's table, or an error
    Chips chips = bank;
    std::string config = "", backend = "", failing = "nothing"; // calls, as a regular expression
    int injected = EACCES;
    std::map<unsigned long, std::string> users = {};
    std::string configFile = "";
} cases[] = {
    // The interface
    {40, "libsysfsgpio 40"},
    {40, "sysfs 40", bank, "", "", "", 0, exported},
    {40, "sysfs 40", bank, "", "", "open /dev"},
    {40, line8 + " (in use by 'another'): Device or resource busy", bank, "", "", "", 0, used},
    {40, line8 + " (exported in /sys/class/gpio): File exists", bank, "", "chardev", "", 0, exported},
    {40, noDevice, bank, "", "chardev", "open /dev"},
    {40, noDevice + "; cannot open /sys/class/gpio/export" + group + denied, bank, "", "", "open .*/(dev|export)"},
    {40, "GPIO 40: SYSFSGPIO_BACKEND is 'both', neither chardev nor sysfs" + invalid, bank, "", "both"},
    // Numbers
    {545, "libsysfsgpio 545", two},
    {512, "libsysfsgpio 512", renumbered},
    {575, "libsysfsgpio 575", siblings},
    {545, "sysfs 545", twins, "", "", "open /dev/gpiochip0", ENOENT}, // which one has gone?
    {545,
     "GPIO 545: cannot find the chip of base 544 in /dev (it may be gpiochip0 or gpiochip1; name it in "
     "/etc/sysfsgpio.conf): No such device",
     twins, "", "chardev"},
    {4, "libsysfsgpio 103", withoutBases},                                          // in the order in /dev
    {40, "libsysfsgpio 72", bank, "", "", "open /sys/class/gpio/gpiochip", ENOENT}, // a chip that goes meanwhile
    {552, "GPIO 552" + unknown, two},
    {1, "GPIO 1: cannot open /dev/gpiochip10" + group + denied, withoutBases, "", "", "open /dev/gpiochip10"},
    {8,
     "GPIO 8: there are neither chips in /dev (CONFIG_GPIO_CDEV) nor in /sys/class/gpio (CONFIG_GPIO_SYSFS): No such "
     "device",
     {}},
    // Numbers by a file
    {1, "libsysfsgpio 545", twins, "0 gpiochip1"},
    {1, noBase + ": No such device", twins, "0 gpiochip1", "sysfs"},
    {104, "libsysfsgpio 200", withoutBases, "# no line\n100 c # 4 lines\n104 " + longLabel},
    {1, file + ":2" + noPair, two, "0 a\n3x b"},
    {1, file + ":1: no chip that may be read has the name or label 'c'" + invalid, two, "0 c"},
    {1, file + ":1: several chips have the label 'a', give the chip's name" + invalid, twins, "0 a"},
    {1, file + ":2: its numbers overlap those of " + file + ":1" + invalid, two, "0 a\n31 b"},
    {1, "libsysfsgpio 513", two, "32 b\n0 a"},
    {1, file + ":2: this chip has a base already" + invalid, two, "0 a\n64 gpiochip0"},
    {1, "libsysfsgpio 33", bank, "0 bank", "", "", 0, {}, "/elsewhere"},
    {1, "cannot open /elsewhere: No such file or directory", bank, "", "", "", 0, {}, "/elsewhere"},
};

TEST(ExportGpio, GivesEachNumberOneLineByOneInterfaceOrSaysWhyNot)
{
    for (const auto& row : cases) {
        setenv("SYSFSGPIO_BACKEND", row.backend.c_str(), 1);
        setenv("SYSFSGPIO_CONFIG", row.configFile.c_str(), 1);
        FakeKernel kernel;
        kernel.chips = row.chips;
        if (!row.chips.empty()) {
            kernel.files["/dev/gpiochip1000"] = "/dev/" + row.chips[0].name; // no chip of its own
        }
        if (!row.config.empty()) {
            kernel.files[row.configFile.empty() ? file : row.configFile] = row.config;
        }
        kernel.users = row.users;
        const std::regex failing(row.failing);
        kernel.fault = [&](const std::string& call) {
            return std::regex_search(call, failing, std::regex_constants::match_continuous) ? row.injected : 0;
        };
        std::string found;
        const std::string error = errorOf([&] {
            const auto held = sysfs::exportGpio(kernel, row.number);
            for (const auto& [number, user] : kernel.users) {
                found += user + " " + std::to_string(number);
            }
        });
        EXPECT_EQ(error.empty() ? found : error, row.expected) << row.config;
        EXPECT_EQ(kernel.users, row.users) << row.expected;
        EXPECT_EQ(kernel.openFiles(), 0U) << row.expected;
    }
    unsetenv("SYSFSGPIO_BACKEND");
    unsetenv("SYSFSGPIO_CONFIG");
}
