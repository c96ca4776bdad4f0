#include "sysfs/CharacterDeviceGpio.h"
#include "sysfs/KernelGpio.h"
#include "sysfs/LinuxGpio.h"
#include "tests/sysfs/FakeKernel.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <regex>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

// Lets every system call in the life of a pin fail in every way. The rules below say how each failure ends.
using namespace std::chrono_literals;
using namespace sysfs;

const std::map<char, std::function<void(KernelGpio&)>> operations = {
    {'e', [](KernelGpio& pin) { pin.exportGpio(8); }},
    {'O', [](KernelGpio& pin) { EXPECT_TRUE(pin.init(true, PinDirectionEn::Output, true)); }},
    {'I', [](KernelGpio& pin) { EXPECT_TRUE(pin.init(false, PinDirectionEn::Input, true)); }},
    {'o', [](KernelGpio& pin) { pin.setDirection(PinDirectionEn::Output); }},
    {'i', [](KernelGpio& pin) { pin.setDirection(PinDirectionEn::Input); }},
    {'0', [](KernelGpio& pin) { EXPECT_TRUE(pin.setValue(false)); }},
    {'1', [](KernelGpio& pin) { EXPECT_TRUE(pin.setValue(true)); }},
    {'g', [](KernelGpio& pin) { EXPECT_TRUE(pin.getValue() && !pin.getValue() && pin.getGpioNumber() == 8); }},
    {'d', [](KernelGpio& pin) { pin.deinit(); }},
    {'!', [](KernelGpio&) {}},
};

static std::unique_ptr<KernelGpio> makePin(FakeKernel& kernel, bool byDevice)
{
    return std::make_unique<KernelGpio>([&kernel, byDevice](unsigned number) {
        GpioLine line{{}, 8};
        line.chip.name = "gpiochip0";
        return byDevice ? exportCharacterDeviceGpio(kernel, line, number)
                        : exportLinuxGpio(kernel, "/sys/class/gpio", number, 40);
    });
}

const std::string lineIsHeld = "the kernel or a driver holds the line, see /sys/kernel/debug/gpio";
const std::string noSuchLine = "no such GPIO; /sys/class/gpio/gpiochip*/base and ngpio show which exist";
const std::string noPermission = "run as root or in the group that owns the file";
const std::string lineHasGone = "something else has unexported the line";

/**
 * What a failing call does to the operation. Succeeds: it succeeds as if nothing had happened. Waits: it succeeds when
 * the next attempt does, and throws after a second of them. NeedsExported: it succeeds on a line that was exported
 * before, if the kernel shows that, and throws otherwise.
 */
enum class End { Succeeds, Waits, NeedsExported, Throws };

using Failure = std::regex; // begins with the name of the errno value, "~" in the destructor

/** The first rule that fits counts. */
const struct Rule {
    Failure failure;
    End end;
    std::string hint = ""; // in the error's text
    int thrown = 0;        // errno value, unless it is the one injected
} rules[] = {
    {Failure("~"), End::Succeeds}, // a destructor cannot report
    {Failure("EINTR|close "), End::Succeeds},
    {Failure("EAGAIN lock "), End::Throws, "in use by another process or pin object", EBUSY},
    {Failure("lock "), End::Succeeds}, // files cannot be locked here
    {Failure("EBUSY write .*/export"), End::NeedsExported, lineIsHeld},
    {Failure("EACCES open .*/export"), End::NeedsExported, noPermission},
    {Failure("(EBUSY|EACCES) .*/export"), End::NeedsExported},
    {Failure("ENOENT open .*/export"), End::Throws, "this kernel lacks the sysfs GPIO interface, CONFIG_GPIO_SYSFS"},
    {Failure("EINVAL write .*/export"), End::Throws, noSuchLine},
    {Failure("ENOENT open .*/direction"), End::Waits, "the line has gone, or its direction is fixed"},
    {Failure("ENOENT open .*/gpio40"), End::Waits},
    {Failure("(EACCES|EPERM) open .*/gpio40"), End::Waits, noPermission},
    {Failure("(EACCES|EPERM) open "), End::Throws, noPermission},
    {Failure("EINVAL write .*/unexport"), End::Throws, lineHasGone},
    {Failure("ENODEV (write|read) .*/(direction|value)"), End::Throws, lineHasGone},
    {Failure("EPERM (write .*/value|set )"), End::Throws, "the line is an input"},
    {Failure("partly read "), End::Throws, "neither 0 nor 1", EIO},
    {Failure("partly "), End::Throws, "", EIO},
    {Failure("EBUSY request "), End::Throws, "in use by the kernel or a driver"},
    {Failure("EINVAL request "), End::Throws, "the kernel is older than Linux 5.10, or the driver refuses the line"},
    {Failure("ENODEV (configure|set|get) "), End::Throws, "the chip has gone"},
    {Failure(""), End::Throws},
};

const std::map<int, std::string> faults = {
    {EINTR, "EINTR"}, {EACCES, "EACCES"}, {EAGAIN, "EAGAIN"}, {EBUSY, "EBUSY"}, {EINVAL, "EINVAL"},
    {EIO, "EIO"},     {ENODEV, "ENODEV"}, {ENOENT, "ENOENT"}, {EPERM, "EPERM"}, {FakeKernel::partly, "partly"},
};

/** @return the text of the error after the call */
static std::string textOf(const std::string& call, const std::string& hint, int errnoValue)
{
    return "GPIO 8: cannot " + call.substr(0, call.find(':')) + (hint.empty() ? "" : " (" + hint + ")") + ": " +
           std::generic_category().message(errnoValue);
}

const std::string taken = "open export: w; write export: 40; close export; open gpio40/direction: w; "
                          "open gpio40/value: rw; lock gpio40/value: 6; ";
const std::string released = "open unexport: w; write unexport: 40; close unexport; "
                             "close gpio40/value; close gpio40/direction; "; // the lock is released last
const std::string requested = "open /dev/gpiochip0: rw; request; close /dev/gpiochip0; ";
const std::string inDirections =
    "open gpio40/active_low: w; write gpio40/active_low: 1; close gpio40/active_low; write gpio40/direction: low; "
    "write gpio40/value: 0; read gpio40/value; read gpio40/value; write gpio40/direction: in; "
    "write gpio40/direction: high; open gpio40/active_low: w; write gpio40/active_low: 0; close gpio40/active_low; "
    "write gpio40/direction: in; write gpio40/direction: high; ";
const std::string configured =
    "configure: 10 to 1; set: 0; get; get; configure: 6; configure: 10 to 0; configure: 4; configure: 8 to 1; ";

/** Where a pin lives, and its system calls as long as nothing fails. */
const struct Setting {
    bool byDevice, exportedBefore;
    std::string log;
} settings[] = {
    {false, false, taken + inDirections + released + taken + released},
    {false, true, ""},
    {true, false, requested + configured + "close; " + requested + "close; "},
};

/** The life of a pin up to the first error. */
struct Life {
    /** @param fault of the calls from number first on, as many as times */
    explicit Life(const Setting& setting, int fault = 0, std::size_t first = 0, std::size_t times = 0)
        : staysExported(setting.exportedBefore)
    {
        bool isDestroyed = false;
        std::string exportError = textOf("write /sys/class/gpio/export", lineIsHeld, EBUSY);
        kernel.users = setting.exportedBefore ? FakeKernel::Users{{40, "sysfs"}} : FakeKernel::Users{};
        kernel.fault = [&](const std::string& call) {
            const std::size_t number = calls++;
            if (number < first || number >= first + times || call.rfind("describe", 0) == 0) {
                changes += std::regex_search(call, changing) ? call : "";
                return 0;
            }
            const std::string failure = faults.at(fault) + " " + call;
            const auto fits = [&](const Rule& rule) {
                return std::regex_search(isDestroyed ? "~" : failure, rule.failure);
            };
            const Rule& rule = *std::find_if(std::begin(rules), std::end(rules), fits);
            const std::string text = textOf(call, rule.hint, rule.thrown != 0 ? rule.thrown : fault);
            exportError = rule.end == End::NeedsExported ? text : exportError;
            const bool isLate = rule.end == End::Waits && waited >= 1s;
            const bool isRefused = rule.end == End::NeedsExported && !setting.exportedBefore;
            waited += rule.end == End::Waits && !isLate ? 5ms : 0ms;
            if (expected.empty() && (rule.end == End::Throws || isLate || isRefused)) {
                expected = call.rfind("access", 0) == 0 ? exportError : text;
            }
            staysExported |= std::regex_search(failure, keeping);
            return fault;
        };
        auto pin = makePin(kernel, setting.byDevice);
        error = errorOf([&] {
            for (const char operation : std::string("eO0gioIode")) {
                operations.at(operation)(*pin);
            }
        });
        isDestroyed = true;
        pin.reset();
    }

    const std::regex changing{"^(write .*/gpio40|set|configure)"};
    const std::regex keeping{"EAGAIN lock|^(?!EINTR|.* close).*/unexport"};
    FakeKernel kernel;
    std::size_t calls = 0;
    std::string changes, error, expected;
    std::chrono::milliseconds waited{0};
    bool staysExported;
};

TEST(KernelGpio, EndsAsTheRulesSayWhicheverSystemCallFails)
{
    for (const Setting& setting : settings) {
        const Life clean(setting);
        EXPECT_TRUE(setting.log.empty() || clean.kernel.log == setting.log) << clean.kernel.log;
        for (const auto& [fault, name] : faults) {
            for (const std::size_t times : {1, fault == EINTR ? 3 : 300}) {
                for (std::size_t first = 0; first < clean.calls && !HasFailure(); ++first) {
                    Life life(setting, fault, first, times);
                    EXPECT_EQ(life.error, life.expected);
                    const bool isWhole = life.error.empty();
                    EXPECT_EQ(life.changes, clean.changes.substr(0, isWhole ? std::string::npos : life.changes.size()));
                    EXPECT_EQ(life.kernel.now().time_since_epoch(), life.waited);
                    EXPECT_EQ(life.kernel.openFiles(), 0U);
                    EXPECT_EQ(life.kernel.users.size(), life.staysExported ? 1U : 0U);
                    EXPECT_FALSE(HasFailure()) << life.kernel.log << name << " from " << first << " on";
                }
            }
        }
    }
}

TEST(KernelGpio, RefusesCallsOutOfOrderAndLeavesOutOnlyLevelsThatAnOutputCertainlyHas)
{
    // Operations, of which '!' lets the next fail, with calls or an error.
    const std::pair<std::string, std::string> rows[] = {
        {"1", "GPIO pin: setValue before exportGpio"},
        {"edde", requested + "close; " + requested},
        {"ee", "GPIO 8: exportGpio again before deinit"},
        {"eo", "GPIO 8: setDirection before init"},
        {"eOdei", "GPIO 8: setDirection before init"},
        {"e00", requested + "set: 0; set: 0; "}, // not yet an output
        {"eO0!100", requested + "configure: 10 to 1; set: 0; set: 1; set: 0; "},
        {"eO!O0o", requested + "configure: 10 to 1; configure: 10 to 1; set: 0; configure: 10 to 0; "},
        {"eO!o11o1", requested + "configure: 10 to 1; configure: 10 to 1; set: 1; set: 1; configure: 10 to 1; "},
        {"eO!0o0", requested + "configure: 10 to 1; set: 0; configure: 10 to 0; "}, // the level last passed
    };
    for (const auto& [row, expected] : rows) {
        FakeKernel kernel;
        bool fails = false;
        kernel.fault = [&fails](const std::string&) { return fails ? EIO : 0; };
        const auto pin = makePin(kernel, true);
        std::string errors;
        for (const char operation : row) {
            const std::string error = errorOf([&] { operations.at(operation)(*pin); });
            errors += !fails ? error : error.empty() ? "no error" : "";
            fails = operation == '!';
        }
        EXPECT_EQ(errors.empty() ? kernel.log : errors, expected) << row;
    }
}
