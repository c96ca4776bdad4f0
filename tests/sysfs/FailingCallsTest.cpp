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
#include <optional>
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
    {'g', [](KernelGpio& pin) { EXPECT_TRUE(pin.getValue() && pin.getGpioNumber() == 8); }},
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

const std::string taken = "open export: w; write export: 40; close export; open gpio40/direction: w; "
                          "open gpio40/value: rw; lock gpio40/value: 6; ";
const std::string released = "open unexport: w; write unexport: 40; close unexport; "
                             "close gpio40/value; close gpio40/direction; "; // the lock is released last
const std::string requested = "open /dev/gpiochip0: rw; request line 8 of /dev/gpiochip0; close /dev/gpiochip0; ";
const std::string closed = "close line 8 of /dev/gpiochip0; ";

/** Where a pin lives, and its system calls as long as nothing fails. */
const struct Setting {
    bool byDevice, exportedBefore;
    std::string log;
} settings[] = {
    {false, false,
     taken + "open gpio40/active_low: w; write gpio40/active_low: 1; close gpio40/active_low; " +
         "write gpio40/direction: low; write gpio40/value: 0; read gpio40/value; write gpio40/direction: in; " +
         "write gpio40/direction: high; open gpio40/active_low: w; write gpio40/active_low: 0; " +
         "close gpio40/active_low; write gpio40/direction: in; write gpio40/direction: high; " + released + taken +
         released},
    {false, true, ""},
    {true, false,
     requested + "configure low; set 0; get; configure in; configure high; configure in; configure high; " + closed +
         requested + closed},
};

bool beginsWith(const std::string& text, const std::string& prefix)
{
    return text.rfind(prefix, 0) == 0;
}

/** @return the log with less words for the line of the character device */
std::string shortened(const std::string& log)
{
    return std::regex_replace(log, std::regex("(configure|set|get) line 8 of /dev/gpiochip0:?"), "$1");
}

struct Step {
    char operation;
    std::string call; // "~" for all of the destructor
};

/** The life of a pin up to the first error, with calls that fail by an errno value, or 0, for the number of each. */
struct Life {
    Life(const Setting& setting, const std::function<int(std::size_t)>& faultOf)
    {
        bool staysExported = setting.exportedBefore;
        if (setting.exportedBefore) {
            kernel.users[40] = "sysfs";
        }
        char operation = '\0';
        kernel.fault = [&](const std::string& call) {
            steps.push_back({operation, operation == '~' ? "~" : call});
            const int injected = beginsWith(call, "describe") ? 0 : faultOf(steps.size() - 1);
            const bool isAnothers = injected == EWOULDBLOCK && beginsWith(call, "lock ");
            const bool isStuck = injected != 0 && injected != EINTR && call.find("unexport: ") != std::string::npos;
            staysExported = staysExported || isAnothers || isStuck;
            const bool isChange = beginsWith(call, "write gpio") || beginsWith(call, "set") || beginsWith(call, "conf");
            changes += injected == 0 && isChange ? call : "";
            return injected;
        };
        auto pin = makePin(kernel, setting.byDevice);
        try {
            for (const char each : std::string("eO0gioIode")) {
                operation = each;
                operations.at(each)(*pin);
            }
        } catch (const std::system_error& e) {
            failedIn = operation;
            error = e;
        }
        operation = '~';
        pin.reset();
        EXPECT_EQ(kernel.openFiles(), 0U);
        EXPECT_EQ(kernel.users.size(), staysExported ? 1U : 0U);
    }

    FakeKernel kernel;
    std::vector<Step> steps;
    std::string changes;
    std::optional<std::system_error> error;
    char failedIn = '\0';
};

enum class End {
    Succeeds,      // as if nothing had happened
    Waits,         // succeeds when the next attempt does; throws after a second of them
    NeedsExported, // succeeds on a line that was exported before, if the kernel shows that; throws otherwise
    Throws,
};

/** The first rule that fits counts. What is empty fits everything. */
const struct Rule {
    std::vector<std::string> calls; // how they begin
    std::vector<int> errnoValues;
    End end;
    std::string hint = "";       // how it begins
    int thrown = 0;              // errno value, unless it is the one injected, or EIO for a short transfer
    std::string thrownCall = ""; // whose failure is reported, unless it is the call's own
} rules[] = {
    {{"~"}, {}, End::Succeeds}, // a destructor cannot report
    {{"close "}, {}, End::Succeeds},
    {{}, {EINTR}, End::Succeeds},
    {{"lock "}, {EWOULDBLOCK}, End::Throws, "in use by another process or pin object)", EBUSY},
    {{"lock "}, {}, End::Succeeds}, // files cannot be locked here
    {{"access "}, {}, End::Throws, "the kernel or a driver holds the line", EBUSY, "write export:"},
    {{"write export:"}, {EBUSY}, End::NeedsExported, "the kernel or a driver holds the line, see /sys/kernel"},
    {{"open export:"}, {EACCES}, End::NeedsExported, "run as root or in the group that owns the file)"},
    {{"open export:", "write export:"}, {EBUSY, EACCES}, End::NeedsExported},
    {{"open export:"}, {ENOENT}, End::Throws, "this kernel lacks the sysfs GPIO interface, CONFIG_GPIO_SYSFS)"},
    {{"write export:"}, {EINVAL}, End::Throws, "no such GPIO; /sys/class/gpio/gpiochip*/base and ngpio show which"},
    {{"open gpio40/direction:"}, {ENOENT}, End::Waits, "the line has gone, or its direction is fixed)"},
    {{"open gpio"}, {ENOENT}, End::Waits},
    {{"open gpio"}, {EACCES, EPERM}, End::Waits, "run as root or in the group"},
    {{"open "}, {EACCES, EPERM}, End::Throws, "run as root or in the group"},
    {{"write unexport:"}, {EINVAL}, End::Throws, "something else has unexported the line)"},
    {{"write gpio40/direction:", "write gpio40/value:", "read gpio40/value"},
     {ENODEV},
     End::Throws,
     "something else has unexported the line)"},
    {{"write gpio40/value:", "set "}, {EPERM}, End::Throws, "the line is an input)"},
    {{"write unexport:"}, {FakeKernel::partly}, End::Throws, "only 1 of 2 bytes)"},
    {{"write "}, {FakeKernel::partly}, End::Throws, "only "},
    {{"read "}, {FakeKernel::partly}, End::Throws, "neither 0 nor 1)"},
    {{"request "}, {EBUSY}, End::Throws, "in use by the kernel or a driver)"},
    {{"request "}, {EINVAL}, End::Throws, "the kernel is older than Linux 5.10, or the driver refuses the line)"},
    {{"configure ", "set ", "get "}, {ENODEV}, End::Throws, "the chip has gone)"},
    {{}, {}, End::Throws},
};

const Rule& ruleFor(const Step& step, int fault)
{
    return *std::find_if(std::begin(rules), std::end(rules), [&](const Rule& rule) {
        const auto isBegin = [&](const std::string& begin) { return beginsWith(step.call, begin); };
        const auto& values = rule.errnoValues;
        return (rule.calls.empty() || std::any_of(rule.calls.begin(), rule.calls.end(), isBegin)) &&
               (values.empty() || std::find(values.begin(), values.end(), fault) != values.end());
    });
}

void expectError(const Life& life, const Step& failed, int fault, const std::string& directory)
{
    const Rule& rule = ruleFor(failed, fault);
    ASSERT_TRUE(life.error) << "no error";
    EXPECT_EQ(life.failedIn, failed.operation);
    EXPECT_EQ(life.error->code().value(), rule.thrown != 0 ? rule.thrown : fault == FakeKernel::partly ? EIO : fault);
    const std::string call = rule.thrownCall.empty() ? failed.call : rule.thrownCall;
    const std::size_t gap = call.find(' ') + 1;
    const std::string text = "GPIO 8: cannot " + call.substr(0, gap) + directory +
                             call.substr(gap, call.find(':') - gap) + (rule.hint.empty() ? ": " : " (" + rule.hint);
    EXPECT_EQ(std::string(life.error->what()).substr(0, text.size()), text);
}

TEST(KernelGpio, EndsAsTheRulesSayWhicheverSystemCallFails)
{
    constexpr std::size_t fromThenOn = 1000000;
    for (const Setting& setting : settings) {
        Life clean(setting, [](std::size_t) { return 0; });
        ASSERT_FALSE(clean.error);
        EXPECT_TRUE(setting.log.empty() || shortened(clean.kernel.log) == setting.log) << clean.kernel.log;
        for (const int fault : {EINTR, EACCES, EAGAIN, EBUSY, EINVAL, EIO, ENODEV, ENOENT, EPERM, FakeKernel::partly}) {
            for (const std::size_t times : {std::size_t{1}, fault == EINTR ? std::size_t{3} : fromThenOn}) {
                const auto throws = [&](const Step& step) {
                    const End end = ruleFor(step, fault).end;
                    return end == End::Throws || (end == End::Waits && times == fromThenOn) ||
                           (end == End::NeedsExported && (times == fromThenOn || !setting.exportedBefore));
                };
                for (std::size_t n = 0; n < clean.steps.size() && !HasFailure(); ++n) {
                    const auto first = clean.steps.begin() + static_cast<std::ptrdiff_t>(n);
                    const auto end = times == fromThenOn ? clean.steps.end() : first + 1;
                    const auto failed = std::find_if(first, end, throws);
                    SCOPED_TRACE(first->call + ": errno " + std::to_string(fault) +
                                 ", times: " + std::to_string(times));
                    Life life(setting, [&](std::size_t step) { return step >= n && step - n < times ? fault : 0; });
                    if (failed != end) {
                        expectError(life, *failed, fault, setting.byDevice ? "" : "/sys/class/gpio/");
                        EXPECT_TRUE(beginsWith(clean.changes, life.changes));
                    } else {
                        EXPECT_FALSE(life.error);
                        EXPECT_EQ(life.changes, clean.changes);
                    }
                    // Patience is for one file, and each of its attempts waits 5 ms for the next.
                    const bool waits = failed != end && ruleFor(*failed, fault).end == End::Waits;
                    const auto elapsed = life.kernel.now().time_since_epoch();
                    EXPECT_TRUE(waits ? elapsed >= 1s && elapsed <= 1005ms : elapsed <= 5ms);
                    EXPECT_LE(life.steps.size(), clean.steps.size() + (waits ? 203 : 6));
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
        {"edde", requested},
        {"edg", "GPIO pin: getValue before exportGpio"},
        {"ee", "GPIO 8: exportGpio again before deinit"},
        {"eo", "GPIO 8: setDirection before init"},
        {"eOdei", "GPIO 8: setDirection before init"},
        {"e00", "set 0; set 0; "}, // not yet an output
        {"eO10011", "configure low; set 0; set 1; "},
        {"eO0!000", "configure low; set 0; "},
        {"eO!000", "configure low; set 0; set 0; "},
        {"eO!100", "configure low; set 0; "},
        {"eOi1o1", "configure low; configure in; set 1; configure low; "},
        {"eO!o11o1", "configure low; configure low; set 1; set 1; configure low; "},
        {"eO!0o0", "configure low; set 0; configure high; "}, // the level last passed
    };
    for (const auto& [row, expected] : rows) {
        FakeKernel kernel;
        bool fails = false;
        kernel.fault = [&fails](const std::string&) { return fails ? EIO : 0; };
        const auto pin = makePin(kernel, true);
        std::string errors;
        for (const char operation : row) {
            if (operation == 'e') {
                kernel.log.clear();
            }
            const std::string error = errorOf([&] { operations.at(operation)(*pin); });
            errors += fails ? "" : error;
            fails = operation == '!';
        }
        const std::string calls = shortened(kernel.log);
        EXPECT_EQ(errors.empty() ? calls.substr(expected == requested ? 0 : requested.size()) : errors, expected);
    }
}

} // namespace
