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
namespace {

using namespace std::chrono_literals;
using sysfs::KernelGpio;
using sysfs::PinDirectionEn;

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

std::unique_ptr<KernelGpio> makePin(FakeKernel& kernel, bool byDevice)
{
    return std::make_unique<KernelGpio>([&kernel, byDevice](unsigned number) {
        sysfs::GpioLine line{{}, 8};
        line.chip.name = "gpiochip0";
        return byDevice ? sysfs::exportCharacterDeviceGpio(kernel, line, number)
                        : sysfs::exportLinuxGpio(kernel, "/sys/class/gpio", number, 40);
    });
}

const std::string lineIsHeld = "the kernel or a driver holds the line, see /sys/kernel/debug/gpio";
const std::string noSuchLine = "no such GPIO; /sys/class/gpio/gpiochip*/base and ngpio show which exist";
const std::string noPermission = "run as root or in the group that owns the file";
const std::string lineHasGone = "something else has unexported the line";
constexpr int partly = FakeKernel::partly;

const std::string taken = "open export: w; write export: 40; close export; open gpio40/direction: w; "
                          "open gpio40/value: rw; lock gpio40/value: 6; ";
const std::string released = "open unexport: w; write unexport: 40; close unexport; "
                             "close gpio40/value; close gpio40/direction; "; // the lock is released last
const std::string requested = "open /dev/gpiochip0: rw; request line 8 of /dev/gpiochip0; close /dev/gpiochip0; ";
const std::string closed = "close line 8 of /dev/gpiochip0; ";

/** @return the log with less words for the line of the character device */
std::string shortened(const std::string& log)
{
    return std::regex_replace(log, std::regex("(configure|set|get) line 8 of /dev/gpiochip0:?"), "$1");
}

enum class End {
    Succeeds,      // as if nothing had happened
    Waits,         // succeeds when the next attempt does; throws after a second of them
    NeedsExported, // succeeds on a line that was exported before, if the kernel shows that; throws otherwise
    Throws,
};

/** The first rule that fits counts. What is empty fits everything. */
const struct Rule {
    std::vector<std::string> calls; // how they begin; "~" for those of the destructor
    std::vector<int> errnoValues;
    End end;
    std::string hint = "";       // in the error's text
    int thrown = 0;              // errno value, unless it is the one injected, or EIO for a short transfer
    std::string thrownCall = ""; // whose failure is reported, unless it is the call's own
} rules[] = {
    {{"~"}, {}, End::Succeeds}, // a destructor cannot report
    {{"close "}, {}, End::Succeeds},
    {{}, {EINTR}, End::Succeeds},
    {{"lock "}, {EWOULDBLOCK}, End::Throws, "in use by another process or pin object", EBUSY},
    {{"lock "}, {}, End::Succeeds}, // files cannot be locked here
    {{"access "}, {}, End::Throws, lineIsHeld, EBUSY, "write export:"},
    {{"write export:"}, {EBUSY}, End::NeedsExported, lineIsHeld},
    {{"open export:"}, {EACCES}, End::NeedsExported, noPermission},
    {{"open export:", "write export:"}, {EBUSY, EACCES}, End::NeedsExported},
    {{"open export:"}, {ENOENT}, End::Throws, "this kernel lacks the sysfs GPIO interface, CONFIG_GPIO_SYSFS"},
    {{"write export:"}, {EINVAL}, End::Throws, noSuchLine},
    {{"open gpio40/direction:"}, {ENOENT}, End::Waits, "the line has gone, or its direction is fixed"},
    {{"open gpio"}, {ENOENT}, End::Waits},
    {{"open gpio"}, {EACCES, EPERM}, End::Waits, noPermission},
    {{"open "}, {EACCES, EPERM}, End::Throws, noPermission},
    {{"write unexport:"}, {EINVAL}, End::Throws, lineHasGone},
    {{"write gpio40/direction:", "write gpio40/value:", "read gpio40/value"}, {ENODEV}, End::Throws, lineHasGone},
    {{"write gpio40/value:", "set "}, {EPERM}, End::Throws, "the line is an input"},
    {{"read "}, {partly}, End::Throws, "neither 0 nor 1"},
    {{"request "}, {EBUSY}, End::Throws, "in use by the kernel or a driver"},
    {{"request "}, {EINVAL}, End::Throws, "the kernel is older than Linux 5.10, or the driver refuses the line"},
    {{"configure ", "set ", "get "}, {ENODEV}, End::Throws, "the chip has gone"},
    {{}, {}, End::Throws},
};

const Rule& ruleFor(const std::string& call, int fault)
{
    return *std::find_if(std::begin(rules), std::end(rules), [&](const Rule& rule) {
        const auto isBegin = [&](const std::string& begin) { return call.rfind(begin, 0) == 0; };
        const auto& values = rule.errnoValues;
        return (rule.calls.empty() || std::any_of(rule.calls.begin(), rule.calls.end(), isBegin)) &&
               (values.empty() || std::find(values.begin(), values.end(), fault) != values.end());
    });
}

/** @return the text of the error that the rule demands when the call fails */
std::string textOf(const Rule& rule, const std::string& failed, int fault, const std::string& directory)
{
    const std::string call = rule.thrownCall.empty() ? failed : rule.thrownCall;
    const std::size_t gap = call.find(' ') + 1;
    const int thrown = rule.thrown != 0 ? rule.thrown : fault == partly ? EIO : fault;
    return "GPIO 8: cannot " + call.substr(0, gap) + directory + call.substr(gap, call.find(':') - gap) +
           (rule.hint.empty() ? "" : " (" + rule.hint + ")") + ": " + std::generic_category().message(thrown);
}

/** Where a pin lives, and its system calls as long as nothing fails. */
const struct Setting {
    bool byDevice, exportedBefore;
    std::string log;
} settings[] = {
    {false, false,
     taken + "open gpio40/active_low: w; write gpio40/active_low: 1; close gpio40/active_low; " +
         "write gpio40/direction: low; write gpio40/value: 0; read gpio40/value; read gpio40/value; write "
         "gpio40/direction: in; " +
         "write gpio40/direction: high; open gpio40/active_low: w; write gpio40/active_low: 0; " +
         "close gpio40/active_low; write gpio40/direction: in; write gpio40/direction: high; " + released + taken +
         released},
    {false, true, ""},
    {true, false,
     requested + "configure 10 to 1; set 0; get; get; configure 6; configure 10 to 0; configure 4; configure 8 to 1; " +
         closed + requested + closed},
};

/** The life of a pin up to the first error. */
struct Life {
    /** @param fault of the calls from number first on, as many as times */
    Life(const Setting& setting, int fault, std::size_t first, std::size_t times)
    {
        bool isDestroyed = false;
        staysExported = setting.exportedBefore;
        if (staysExported) {
            kernel.users[40] = "sysfs";
        }
        kernel.fault = [&](const std::string& call) {
            const std::size_t number = calls++;
            if (number < first || number - first >= times || call.rfind("describe", 0) == 0) {
                changes += std::regex_search(call, changing) ? call : "";
                return 0;
            }
            const Rule& rule = ruleFor(isDestroyed ? "~" : call, fault);
            const bool isLate = rule.end == End::Waits && kernel.now().time_since_epoch() >= 1s;
            const bool isRefused = rule.end == End::NeedsExported && !setting.exportedBefore;
            const std::string text = textOf(rule, call, fault, setting.byDevice ? "" : "/sys/class/gpio/");
            exportError = rule.end == End::NeedsExported ? text : exportError;
            if (expected.empty() && (rule.end == End::Throws || isLate || isRefused)) {
                expected = exportError.empty() ? text : exportError;
                patience = isLate ? 1005ms : 5ms;
            }
            const bool isAnothers = fault == EWOULDBLOCK && call.rfind("lock ", 0) == 0;
            const bool isStuck = fault != EINTR && call.find("unexport: ") != std::string::npos;
            staysExported = staysExported || isAnothers || isStuck;
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

    const std::regex changing{"^(write gpio|set|configure)"};
    FakeKernel kernel;
    std::size_t calls = 0;
    std::string changes, error, expected, exportError;
    bool staysExported;
    std::chrono::nanoseconds patience = 5ms; // for one file, whose attempts wait 5 ms for the next
};

TEST(KernelGpio, EndsAsTheRulesSayWhicheverSystemCallFails)
{
    for (const Setting& setting : settings) {
        const Life clean(setting, 0, 0, 0);
        EXPECT_TRUE(setting.log.empty() || shortened(clean.kernel.log) == setting.log) << clean.kernel.log;
        for (const int fault : {EINTR, EACCES, EAGAIN, EBUSY, EINVAL, EIO, ENODEV, ENOENT, EPERM, partly}) {
            for (const std::size_t times : {1, fault == EINTR ? 3 : 300}) {
                for (std::size_t first = 0; first < clean.calls && !HasFailure(); ++first) {
                    Life life(setting, fault, first, times);
                    EXPECT_EQ(life.error, life.expected);
                    const bool isWhole = life.error.empty();
                    EXPECT_EQ(life.changes, clean.changes.substr(0, isWhole ? std::string::npos : life.changes.size()));
                    EXPECT_LE(life.kernel.now().time_since_epoch(), life.patience);
                    EXPECT_EQ(life.kernel.openFiles(), 0U);
                    EXPECT_EQ(life.kernel.users.size(), life.staysExported ? 1U : 0U);
                    EXPECT_FALSE(HasFailure()) << life.kernel.log << "errno " << fault << " from " << first << " on";
                }
            }
        }
    }
}

TEST(KernelGpio, RefusesCallsOutOfOrderAndLeavesOutOnlyLevelsThatAnOutputCertainlyHas)
{
    // Operations after the last export, of which '!' lets the next fail, with calls or an error.
    const std::pair<std::string, std::string> rows[] = {
        {"1", "GPIO pin: setValue before exportGpio"},
        {"edde", ""},
        {"edg", "GPIO pin: getValue before exportGpio"},
        {"ee", "GPIO 8: exportGpio again before deinit"},
        {"eo", "GPIO 8: setDirection before init"},
        {"eOdei", "GPIO 8: setDirection before init"},
        {"e00", "set 0; set 0; "}, // not yet an output
        {"eO10011", "configure 10 to 1; set 0; set 1; "},
        {"eO!000", "configure 10 to 1; set 0; set 0; "},
        {"eO0!100", "configure 10 to 1; set 0; set 1; set 0; "},
        {"eO!O0o", "configure 10 to 1; configure 10 to 1; set 0; configure 10 to 0; "},
        {"eOi1o1", "configure 10 to 1; configure 6; set 1; configure 10 to 1; "},
        {"eO!o11o1", "configure 10 to 1; configure 10 to 1; set 1; set 1; configure 10 to 1; "},
        {"eO!0o0", "configure 10 to 1; set 0; configure 10 to 0; "}, // the level last passed
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
        const std::string calls = shortened(kernel.log);
        const std::string chipClosed = "close /dev/gpiochip0; ";
        EXPECT_EQ(errors.empty() ? calls.substr(calls.rfind(chipClosed) + chipClosed.size()) : errors, expected) << row;
    }
}

} // namespace
