#include "sysfs/KernelGpio.h"

#include "sysfs/CharacterDeviceGpio.h"
#include "sysfs/GpioChips.h"
#include "sysfs/LinuxGpio.h"
#include "tests/sysfs/FakeKernel.h"
#include "tests/sysfs/PinLife.h"

#include <cerrno>
#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace {

using sysfs::PinDirectionEn;
using tests::errorOf;
using tests::live;

sysfs::GpioLine lineEightOf(const FakeKernel& kernel)
{
    sysfs::GpioLine line{{}, 8};
    line.chip.name = kernel.chips[0].name;
    return line;
}

TEST(CharacterDeviceGpio, LivesOnTheFewestSystemCallsAndDrivesTheLineAsSysfsDoes)
{
    FakeKernel kernel;
    kernel.line.level = '1';
    sysfs::CharacterDeviceGpio pin(lineEightOf(kernel), kernel);
    EXPECT_TRUE(live(pin));
    EXPECT_EQ(kernel.log, "open /dev/gpiochip0 rw+e; request 40; close /dev/gpiochip0; "
                          "configure 40 low; configure 40 in; configure 40 low; set 40 0; configure 40 in; "
                          "configure 40 high; configure 40 in; configure 40 low; get 40; close line 40; ");
    FakeKernel other;
    sysfs::LinuxGpio sysfsPin("/sys/class/gpio", other);
    live(sysfsPin);
    EXPECT_EQ(kernel.driven, other.driven);
}

TEST(CharacterDeviceGpio, LeavesOutOnlyLevelsThatAnOutputCertainlyHas)
{
    const std::string low = "configure 40 low; ";
    const std::string high = "configure 40 high; ";
    const std::string in = "configure 40 in; ";
    const std::string on = "set 40 1; ";
    const std::string off = "set 40 0; ";
    const struct {
        std::string
            operations; // a level, i or o for setDirection, O for init as an output at 1; '!' lets the next fail
        std::string log;
    } rows[] = {
        {"00", off + off}, // not yet an output
        {"O10011", high + off + on},
        {"!000", off + off},
        {"!100", on + off},
        {"i1o1", in + on + high},
        {"!o11o1", high + on + on + high},
        {"!0o0", off + low}, // the level last asked for
        {"!O0o", high + off + low},
    };
    FakeKernel kernel;
    sysfs::CharacterDeviceGpio pin(lineEightOf(kernel), kernel);
    pin.exportGpio(40);
    for (const auto& row : rows) {
        kernel.log.clear();
        bool fails = false;
        kernel.fault = [&fails](const std::string&) { return fails ? EIO : 0; };
        for (const char operation : row.operations) {
            const std::system_error error = errorOf([&] {
                operation == 'O'                       ? void(pin.init(false, PinDirectionEn::Output, true))
                : operation == 'o'                     ? pin.setDirection(PinDirectionEn::Output)
                : operation == 'i'                     ? pin.setDirection(PinDirectionEn::Input)
                : operation == '0' || operation == '1' ? void(pin.setValue(operation == '1'))
                                                       : void();
            });
            EXPECT_TRUE(!fails || error.code().value() == EIO) << row.operations;
            fails = operation == '!';
        }
        EXPECT_EQ(kernel.log, row.log) << row.operations;
    }
}

TEST(KernelGpio, RepeatsInterruptedCalls)
{
    for (const char* backend : {"chardev", "sysfs"}) {
        setenv("SYSFSGPIO_BACKEND", backend, 1);
        FakeKernel kernel;
        kernel.fault = [last = std::string()](const std::string& call) mutable {
            return std::exchange(last, call) == call ? 0 : EINTR;
        };
        sysfs::KernelGpio pin(kernel);
        live(pin);
        EXPECT_EQ(kernel.driven[40], "low; in; low; high; in; high; in; low; ") << backend;
        EXPECT_TRUE(kernel.openFiles() == 0 && kernel.line.consumer.empty() && !kernel.line.exported);
    }
    unsetenv("SYSFSGPIO_BACKEND");
}

TEST(KernelGpio, ChoosesAnInterfaceOrSaysWhyThereIsNone)
{
    const std::string noDevice =
        "GPIO 40: cannot open /dev/gpiochip0 (run as root or in the group that owns the file): "
        "Permission denied";
    const struct {
        std::string backend, failing;
        int injected;
        bool exported;
        std::string consumer, expected; // the line's consumer, "exported", or an error
    } cases[] = {
        {"", "", 0, false, "", "libsysfsgpio"},
        {"sysfs", "", 0, false, "", "exported"},
        {"chardev", "", 0, false, "", "libsysfsgpio"},
        {"", "", 0, true, "", "exported"},
        {"", "open /dev", EACCES, false, "", "exported"},
        {"", "request", EINVAL, false, "", "exported"},
        {"", "", 0, false, "another",
         "GPIO 40: cannot request line 8 of /dev/gpiochip0 (in use by 'another'): Device or resource busy"},
        {"", "describe 40", EIO, false, "another",
         "GPIO 40: cannot request line 8 of /dev/gpiochip0: Device or resource busy"},
        {"chardev", "", 0, true, "",
         "GPIO 40: cannot request line 8 of /dev/gpiochip0 (exported in /sys/class/gpio): File exists"},
        {"chardev", "open /dev", EACCES, false, "", noDevice},
        {"", "open ", EACCES, false, "",
         noDevice + "; cannot open /sys/class/gpio/export (run as root or in the group that owns the file): "
                    "Permission denied"},
        {"both", "", 0, false, "", "GPIO 40: SYSFSGPIO_BACKEND is 'both', neither chardev nor sysfs: Invalid argument"},
    };
    for (const auto& row : cases) {
        setenv("SYSFSGPIO_BACKEND", row.backend.c_str(), 1);
        FakeKernel kernel;
        kernel.line.exported = row.exported;
        kernel.line.consumer = row.consumer;
        kernel.fault = [&row](const std::string& call) {
            const bool fails = !row.failing.empty() && call.rfind(row.failing, 0) == 0;
            return fails && call.find("gpiochip32/") == std::string::npos ? row.injected : 0;
        };
        {
            sysfs::KernelGpio pin(kernel);
            const std::system_error error = errorOf([&] { pin.exportGpio(40); });
            const std::string reached = kernel.line.exported ? "exported" : kernel.line.consumer;
            EXPECT_EQ(error.code().value() == 0 ? reached : error.what(), row.expected) << row.expected;
        }
        EXPECT_EQ(kernel.line.exported, row.exported) << row.expected;
        EXPECT_EQ(kernel.openFiles(), 0U) << row.expected;
    }
    unsetenv("SYSFSGPIO_BACKEND");
}

TEST(KernelGpio, RefusesCallsOutOfOrderAndCanBeExportedAgain)
{
    FakeKernel kernel;
    sysfs::KernelGpio pin(kernel);
    EXPECT_THROW(pin.setValue(true), std::logic_error);
    pin.exportGpio(40);
    EXPECT_THROW(pin.setDirection(PinDirectionEn::Output), std::logic_error);
    EXPECT_THROW(pin.exportGpio(41), std::logic_error);
    pin.deinit();
    pin.deinit();
    EXPECT_THROW(pin.getGpioNumber(), std::logic_error);
    kernel.lines[41].exported = true; // so that the other interface comes next
    pin.exportGpio(41);
    EXPECT_EQ(pin.getGpioNumber(), 41U);
}

TEST(GpioChips, GiveEachNumberOneLineOrSayWhyNot)
{
    using Chips = std::vector<FakeKernel::Chip>;
    const std::string file = "/etc/sysfsgpio.conf";
    const std::string invalid = ": Invalid argument";
    const std::string unknown = ": no chip has this number, see 'frontpanel chips'" + invalid;
    const std::string longLabel = "a label of more than thirty-one bytes";
    const std::string nowhere = "GPIO 8: there are neither chips in /dev (CONFIG_GPIO_CDEV) nor in /sys/class/gpio "
                                "(CONFIG_GPIO_SYSFS): No such device";
    const auto none = std::optional<unsigned>();
    const Chips two = {{"gpiochip0", "a", 32, 512, "soc"}, {"gpiochip1", "b", 8, 544, "i2c"}};
    const Chips renumbered = {{"gpiochip0", "b", 8, 544, "i2c"}, {"gpiochip1", "a", 32, 512, ""}};
    const Chips twins = {{"gpiochip0", "a", 32, 512}, {"gpiochip1", "a", 32, 544}};
    const Chips siblings = {{"gpiochip0", "a", 32, 512}, {"gpiochip1", "b", 32, 544}, {"gpiochip2", "b", 8, 576}};
    const Chips withoutBases = {{"gpiochip10", "c", 4, 0, "", none}, {"gpiochip2", longLabel, 8, 0, "", none}};
    const struct {
        Chips chips;
        std::string config, failing;
        unsigned number;
        std::string expected; // chip.offset@number in sysfs, or an error
    } cases[] = {
        {two, "", "", 545, "gpiochip1.1@545"},
        {renumbered, "", "", 512, "gpiochip1.0@512"},
        {siblings, "", "", 575, "gpiochip1.31@575"},
        {siblings, "", "", 577, "gpiochip2.1@577"},
        {two, "", "open /dev", 513, "gpiochip0.1@513"}, // by the parent alone
        {twins, "", "", 545, ".1@545"},
        {two, "", "", 552, "GPIO 552" + unknown},
        {two, "# moved\n 0 a\t# the bank\n\n32 gpiochip1", "", 33, "gpiochip1.1@545"},
        {two, "32 b\n0 a", "", 33, "gpiochip1.1@545"},
        {two, "0 a\n", "", 512, "GPIO 512" + unknown},
        {two, "0 a", "open /dev", 1, "gpiochip0.1@513"},
        {twins, "0 gpiochip1", "", 1, "gpiochip1.1@-"},
        {two, "0 a\n32b", "", 1, file + ":2: this is not a base and a chip's label or name" + invalid},
        {two, "0", "", 1, file + ":1: this is not a base and a chip's label or name" + invalid},
        {two, "-1 a", "", 1, file + ":1: this is not a base and a chip's label or name" + invalid},
        {two, "0 c", "", 1, file + ":1: no chip that may be read has the name or label 'c'" + invalid},
        {twins, "0 a", "", 1, file + ":1: several chips have the label 'a', give the chip's name" + invalid},
        {two, "0 a\n31 b", "", 1, file + ":2: its numbers overlap those of " + file + ":1" + invalid},
        {two, "0 a\n64 gpiochip0", "", 1, file + ":2: this chip has a base already" + invalid},
        {two, "0 a", "open " + file, 1, "cannot open " + file + ": Permission denied"},
        {two, "0 a", "read " + file, 1, "cannot read " + file + ": Permission denied"},
        {withoutBases, "", "", 7, "gpiochip2.7@-"},
        {withoutBases, "", "", 8, "gpiochip10.0@-"},
        {withoutBases, "100 " + longLabel, "", 101, "gpiochip2.1@-"},
        {withoutBases, "", "open /dev/gpiochip10", 8,
         "GPIO 8: cannot open /dev/gpiochip10 (run as root or in the group that owns the file): Permission denied"},
        {{}, "", "", 8, nowhere},
    };
    for (const auto& row : cases) {
        FakeKernel kernel;
        kernel.chips = row.chips;
        if (!row.chips.empty()) {
            kernel.links["gpiochip1000"] = row.chips[0].name; // no chip of its own
        }
        if (!row.config.empty()) {
            kernel.files[file] = row.config;
        }
        kernel.fault = [&row](const std::string& call) {
            return !row.failing.empty() && call.rfind(row.failing, 0) == 0 ? EACCES : 0;
        };
        std::string found;
        const std::system_error error = errorOf([&] {
            const sysfs::GpioLine line = sysfs::findGpioLine(kernel, row.number);
            const auto base = line.chip.sysfsBase;
            found = line.chip.name + "." + std::to_string(line.offset) + "@" +
                    (base ? std::to_string(*base + line.offset) : "-");
        });
        EXPECT_EQ(error.code().value() == 0 ? found : error.what(), row.expected) << row.config;
        EXPECT_EQ(kernel.openFiles(), 0U);
    }
    FakeKernel kernel;
    setenv("SYSFSGPIO_CONFIG", "", 1);
    EXPECT_FALSE(sysfs::readGpioChips(kernel).empty()) << "no file is named";
    setenv("SYSFSGPIO_CONFIG", "/elsewhere", 1);
    EXPECT_STREQ(errorOf([&] { sysfs::readGpioChips(kernel); }).what(),
                 "cannot open /elsewhere: No such file or directory");
    kernel.files["/elsewhere"] = "0 bank";
    sysfs::KernelGpio pin(kernel);
    pin.exportGpio(8);
    EXPECT_EQ(pin.getGpioNumber(), 8U);
    EXPECT_EQ(kernel.line.consumer, "libsysfsgpio");
    setenv("SYSFSGPIO_BACKEND", "sysfs", 1);
    pin.deinit();
    pin.exportGpio(8);
    EXPECT_TRUE(kernel.line.exported && pin.getGpioNumber() == 8);
    kernel.chips = twins;
    kernel.files["/elsewhere"] = "8 gpiochip1";
    EXPECT_STREQ(errorOf([&] { sysfs::KernelGpio(kernel).exportGpio(8); }).what(),
                 "GPIO 8: cannot use /sys/class/gpio/export (no base there is known to be that of gpiochip1): No such "
                 "device");
    unsetenv("SYSFSGPIO_CONFIG");
    unsetenv("SYSFSGPIO_BACKEND");
}

} // namespace
