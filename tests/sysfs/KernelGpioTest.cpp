#include "sysfs/KernelGpio.h"

#include "sysfs/CharacterDeviceGpio.h"
#include "sysfs/GpioChips.h"
#include "sysfs/LinuxGpio.h"
#include "tests/sysfs/FakeKernel.h"
#include "tests/sysfs/PinLife.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace {

using sysfs::PinDirectionEn;
using tests::errorOf;
using tests::live;

/** An environment variable that is set as long as the object lives. */
class Variable {
public:
    Variable(const char* variable, const std::string& value) : name(variable)
    {
        if (!value.empty()) {
            setenv(variable, value.c_str(), 1);
        }
    }
    ~Variable() { unsetenv(name); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const char* name;
};

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
    FakeKernel kernel;
    sysfs::CharacterDeviceGpio pin(lineEightOf(kernel), kernel);
    pin.exportGpio(40);
    bool fails = false;
    kernel.fault = [&](const std::string&) { return fails ? EIO : 0; };
    const auto calls = [&](auto... operations) {
        kernel.log.clear();
        (errorOf([&] { operations(); }), ...);
        return kernel.log;
    };
    const auto level = [&](bool value) { return [&pin, value] { pin.setValue(value); }; };
    const auto direction = [&](PinDirectionEn to) { return [&pin, to] { pin.setDirection(to); }; };
    const auto init = [&](PinDirectionEn to) { return [&pin, to] { pin.init(false, to, true); }; };
    const auto failing = [&](auto operation) {
        return [&fails, operation] {
            fails = true;
            const std::system_error error = errorOf(operation);
            fails = false;
            EXPECT_EQ(error.code().value(), EIO);
        };
    };
    const std::string on = "set 40 1; ";
    const std::string off = "set 40 0; ";
    EXPECT_EQ(calls(level(false), level(false)), off + off) << "not yet an output";
    EXPECT_EQ(calls(init(PinDirectionEn::Output), level(true), level(false), level(false), level(true), level(true)),
              "configure 40 high; " + off + on);
    EXPECT_EQ(calls(failing(level(false)), level(false), level(false)), off + off);
    EXPECT_EQ(calls(failing(level(true)), level(false), level(false)), on + off);
    EXPECT_EQ(calls(direction(PinDirectionEn::Input), level(true), direction(PinDirectionEn::Output), level(true)),
              "configure 40 in; " + on + "configure 40 high; ");
    EXPECT_EQ(calls(failing(direction(PinDirectionEn::Output)), level(true), level(true),
                    direction(PinDirectionEn::Output), level(true)),
              "configure 40 high; " + on + on + "configure 40 high; ");
    EXPECT_EQ(calls(failing(level(false)), direction(PinDirectionEn::Output), level(false)), off + "configure 40 low; ")
        << "the level last asked for";
    EXPECT_EQ(calls(failing(init(PinDirectionEn::Output)), level(false), direction(PinDirectionEn::Output)),
              "configure 40 high; " + off + "configure 40 low; ");
}

TEST(KernelGpio, SurvivesEachCallFailingAndClosesWhatItHasOpened)
{
    for (const char* backend : {"", "sysfs"}) {
        const Variable variable("SYSFSGPIO_BACKEND", backend);
        FakeKernel whole;
        sysfs::KernelGpio undisturbed(whole);
        live(undisturbed);
        const auto callCount = std::count(whole.log.begin(), whole.log.end(), ';');
        for (int failing = 0; failing < callCount; ++failing) {
            for (const int error : {EIO, EINTR}) {
                FakeKernel kernel;
                int count = 0;
                std::string failed;
                kernel.fault = [&](const std::string& call) {
                    failed = count == failing ? call : failed;
                    return count++ == failing ? error : 0;
                };
                sysfs::KernelGpio pin(kernel);
                const std::system_error thrown = errorOf([&] { live(pin); });
                errorOf([&] { pin.deinit(); });
                EXPECT_EQ(kernel.openFiles(), 0U) << failed;
                EXPECT_EQ(kernel.line.consumer, "") << failed;
                const bool reported = thrown.code().value() != 0;
                EXPECT_TRUE(error == EIO || !reported) << failed << thrown.what();
                EXPECT_TRUE(reported || kernel.driven == whole.driven) << failed;
            }
        }
    }
}

TEST(KernelGpio, ChoosesAnInterfaceOrSaysWhyThereIsNone)
{
    const std::string noDevice =
        "GPIO 40: cannot open /dev/gpiochip0 (run as root or in the group that owns the file): "
        "Permission denied";
    const struct {
        std::string title, backend, failing;
        int injected;
        bool exported;
        std::string consumer, expected; // the line's consumer, "exported", or an error
    } cases[] = {
        {"as a rule", "", "", 0, false, "", "libsysfsgpio"},
        {"forced", "sysfs", "", 0, false, "", "exported"},
        {"forced", "chardev", "", 0, false, "", "libsysfsgpio"},
        {"exported before", "", "", 0, true, "", "exported"},
        {"no permission", "", "open /dev", EACCES, false, "", "exported"},
        {"uAPI v1 only", "", "request", EINVAL, false, "", "exported"},
        {"in use", "", "", 0, false, "another",
         "GPIO 40: cannot request line 8 of /dev/gpiochip0 (in use by 'another'): Device or resource busy"},
        {"in use, nameless", "", "describe 40", EIO, false, "another",
         "GPIO 40: cannot request line 8 of /dev/gpiochip0: Device or resource busy"},
        {"exported, forced", "chardev", "", 0, true, "",
         "GPIO 40: cannot request line 8 of /dev/gpiochip0 (exported in /sys/class/gpio): File exists"},
        {"no permission, forced", "chardev", "open /dev", EACCES, false, "", noDevice},
        {"no permission for both", "", "open ", EACCES, false, "",
         noDevice + "; cannot open /sys/class/gpio/export (run as root or in the group that owns the file): "
                    "Permission denied"},
        {"a wrong choice", "both", "", 0, false, "",
         "GPIO 40: SYSFSGPIO_BACKEND is 'both', neither chardev nor sysfs: Invalid argument"},
    };
    for (const auto& row : cases) {
        const Variable variable("SYSFSGPIO_BACKEND", row.backend);
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
            EXPECT_EQ(error.code().value() == 0 ? reached : error.what(), row.expected) << row.title;
        }
        EXPECT_EQ(kernel.line.exported, row.exported) << row.title;
        EXPECT_EQ(kernel.openFiles(), 0U) << row.title;
    }
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
        {{},
         "",
         "",
         8,
         "GPIO 8: there are neither chips in /dev (CONFIG_GPIO_CDEV) nor in /sys/class/gpio (CONFIG_GPIO_SYSFS): No "
         "such "
         "device"},
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
    const Variable variable("SYSFSGPIO_CONFIG", "/elsewhere");
    EXPECT_STREQ(errorOf([&] { sysfs::readGpioChips(kernel); }).what(),
                 "cannot open /elsewhere: No such file or directory");
    kernel.files["/elsewhere"] = "0 bank";
    sysfs::KernelGpio pin(kernel);
    pin.exportGpio(8);
    EXPECT_EQ(pin.getGpioNumber(), 8U);
    EXPECT_EQ(kernel.line.consumer, "libsysfsgpio");
    const Variable backend("SYSFSGPIO_BACKEND", "sysfs");
    pin.deinit();
    pin.exportGpio(8);
    EXPECT_TRUE(kernel.line.exported && pin.getGpioNumber() == 8);
    kernel.chips = twins;
    kernel.files["/elsewhere"] = "8 gpiochip1";
    EXPECT_STREQ(errorOf([&] { sysfs::KernelGpio(kernel).exportGpio(8); }).what(),
                 "GPIO 8: cannot use /sys/class/gpio/export (no base there is known to be that of gpiochip1): No such "
                 "device");
}

} // namespace
