#include "sysfs/LinuxGpio.h"
#include "tests/sysfs/FakeKernel.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

// Lets every system call in the life of a pin fail in every way. The rules below say how each failure ends.
namespace {

using namespace std::chrono_literals;
using sysfs::LinuxGpio;
using sysfs::PinDirectionEn;

/** An operation on a pin, and what it makes the line if it succeeds. */
struct Operation {
    const char* name;
    unsigned gpio;
    const char* driven;
    std::function<void(LinuxGpio&)> run;
};

const Operation allOperations[] = {
    {"export", 40, "", [](LinuxGpio& pin) { pin.exportGpio(40); }},
    {"init", 40, "low; ", [](LinuxGpio& pin) { pin.init(true, PinDirectionEn::Output, true); }},
    {"setValue", 40, "high; ", [](LinuxGpio& pin) { pin.setValue(false); }},
    {"getValue", 40, "", [](LinuxGpio& pin) { EXPECT_TRUE(pin.getValue()); }},
    {"setDirection", 40, "in; ", [](LinuxGpio& pin) { pin.setDirection(PinDirectionEn::Input); }},
    {"setDirection", 40, "high; ", [](LinuxGpio& pin) { pin.setDirection(PinDirectionEn::Output); }},
    {"init", 40, "in; ", [](LinuxGpio& pin) { pin.init(false, PinDirectionEn::Input, true); }},
    {"setDirection", 40, "high; ", [](LinuxGpio& pin) { pin.setDirection(PinDirectionEn::Output); }},
    {"deinit", 40, "", [](LinuxGpio& pin) { pin.deinit(); }},
    {"export", 41, "", [](LinuxGpio& pin) { pin.exportGpio(41); }},
    {"init", 41, "low; ", [](LinuxGpio& pin) { pin.init(false, PinDirectionEn::Output, false); }},
};

/** A system call and the operation that made it. */
struct Step {
    std::string operation;
    unsigned gpio;
    std::string call;
};

bool beginsWith(const std::string& text, const std::string& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

bool isUnexport(const std::string& call)
{
    return beginsWith(call, "open unexport ") || beginsWith(call, "write unexport ");
}

/** The life of a pin up to the first error, with calls that fail by an errno value, or 0, for the number of each. */
struct Life {
    Life(bool exported, std::chrono::milliseconds udevDelay, const std::function<int(std::size_t)>& faultOf)
        : exportedBefore(exported)
    {
        for (const unsigned gpio : {40U, 41U, 42U}) {
            kernel.lines[gpio].exported = exported;
            kernel.lines[gpio].udevDelay = udevDelay;
            kernel.lines[gpio].level = '1';
        }
        Step current;
        kernel.fault = [&](const std::string& call) {
            current.call = call;
            steps.push_back(current);
            const int injected = faultOf(steps.size() - 1);
            unexportsFailed += injected != 0 && injected != EINTR && isUnexport(call) ? 1 : 0;
            return injected;
        };
        auto pin = std::make_unique<LinuxGpio>("/sys/class/gpio", kernel);
        try {
            for (const Operation& operation : allOperations) {
                current = {operation.name, operation.gpio, ""};
                operation.run(*pin);
                asked += operation.driven;
            }
        } catch (const std::system_error& e) {
            failedIn = current;
            error = e;
        }
        current.operation = "destroy";
        pin.reset();
    }

    std::chrono::nanoseconds elapsed() { return kernel.now().time_since_epoch(); }

    FakeKernel kernel;
    bool exportedBefore;
    std::vector<Step> steps;
    std::string asked;
    std::optional<std::system_error> error;
    Step failedIn;
    std::size_t unexportsFailed = 0;
};

enum class End {
    Succeeds,      // as if nothing had happened
    Waits,         // succeeds when the next attempt does; throws after a second of them
    NeedsExported, // succeeds on a line that was exported before, if the kernel shows that; throws otherwise
    Throws,
};

/** The first rule that fits counts. What is empty or 0 fits everything. */
struct Rule {
    std::string operation, call;
    std::vector<int> errnoValues;
    End end;
    int thrown = 0;              // errno value, unless it is the one injected, or EIO for a short transfer
    std::string thrownCall = ""; // whose failure is reported, unless it is the call's own
};

const Rule rules[] = {
    {"destroy", "", {}, End::Succeeds}, // a destructor cannot report
    {"", "close ", {}, End::Succeeds},
    {"", "", {EINTR}, End::Succeeds},
    {"", "lock ", {EWOULDBLOCK}, End::Throws, EBUSY},
    {"", "lock ", {}, End::Succeeds}, // files cannot be locked here
    {"", "access ", {}, End::Throws, EBUSY, "write export "},
    {"", "open export ", {EACCES, EBUSY}, End::NeedsExported},
    {"", "write export ", {EACCES, EBUSY}, End::NeedsExported},
    {"", "open gpio", {EACCES, EPERM, ENOENT}, End::Waits},
    {"", "", {}, End::Throws},
};

const Rule& ruleFor(const Step& step, int errnoValue)
{
    return *std::find_if(std::begin(rules), std::end(rules), [&](const Rule& rule) {
        const auto& values = rule.errnoValues;
        return (rule.operation.empty() || rule.operation == step.operation) && beginsWith(step.call, rule.call) &&
               (values.empty() || std::find(values.begin(), values.end(), errnoValue) != values.end());
    });
}

constexpr std::size_t fromThenOn = 1000000;

/** @return the step of the clean life at which a life shows an error whose calls fail from a step on */
std::optional<std::size_t> stepThatThrows(const Life& clean, std::size_t first, int errnoValue, std::size_t times)
{
    const bool lasts = times == fromThenOn;
    for (std::size_t i = first; i < (lasts ? clean.steps.size() : first + 1); ++i) {
        const End end = ruleFor(clean.steps[i], errnoValue).end;
        if (end == End::Throws || (end == End::Waits && lasts) ||
            (end == End::NeedsExported && (lasts || !clean.exportedBefore))) {
            return i;
        }
    }
    return {};
}

void expectError(Life& life, Life& clean, std::size_t step, int errnoValue)
{
    const Step& failed = clean.steps[step];
    const Rule& rule = ruleFor(failed, errnoValue);
    ASSERT_TRUE(life.error) << "no error";
    EXPECT_EQ(life.failedIn.operation, failed.operation);
    EXPECT_EQ(life.error->code().value(), rule.thrown != 0                   ? rule.thrown
                                          : errnoValue == FakeKernel::partly ? EIO
                                                                             : errnoValue);
    const std::string& call = rule.thrownCall.empty() ? failed.call : rule.thrownCall;
    const std::size_t gap = call.find(' ');
    const std::string file = call.substr(gap + 1, call.find(' ', gap + 1) - gap - 1);
    const std::string text =
        "GPIO " + std::to_string(failed.gpio) + ": cannot " + call.substr(0, gap) + " /sys/class/gpio/" + file;
    EXPECT_TRUE(beginsWith(life.error->what(), text + ": ") || beginsWith(life.error->what(), text + " ("))
        << life.error->what();
    // Patience is for one file, and each of its attempts waits 5 ms for the next.
    EXPECT_LE(life.elapsed(), clean.elapsed() + 1005ms);
    EXPECT_TRUE(rule.end != End::Waits || life.elapsed() >= 1s);
    EXPECT_LE(life.steps.size(), clean.steps.size() + 203);
}

/** @param lockedByAnother whether the line stays exported for who has the lock */
void expectNothingLeft(Life& life, bool lockedByAnother)
{
    EXPECT_EQ(life.kernel.openFiles(), 0U);
    unsigned stillExported = 0;
    for (const auto& [number, line] : life.kernel.lines) {
        stillExported += line.exported ? 1 : 0;
    }
    EXPECT_EQ(stillExported, life.exportedBefore ? 3U : life.unexportsFailed + (lockedByAnother ? 1 : 0));
    EXPECT_EQ(life.kernel.driven[40] + life.kernel.driven[41], life.asked);
}

} // namespace

TEST(LinuxGpio, EndsAsTheRulesSayWhicheverSystemCallFails)
{
    for (const auto& [exportedBefore, udevDelay] :
         {std::pair(false, 0ms), std::pair(true, 0ms), std::pair(false, 20ms)}) {
        Life clean(exportedBefore, udevDelay, [](std::size_t) { return 0; });
        ASSERT_FALSE(clean.error);
        expectNothingLeft(clean, false);
        for (const int fault : {EINTR, EACCES, EAGAIN, EBUSY, EINVAL, EIO, ENODEV, ENOENT, EPERM, FakeKernel::partly}) {
            for (const std::size_t times : {std::size_t{1}, fault == EINTR ? std::size_t{3} : fromThenOn}) {
                for (std::size_t n = 0; n < clean.steps.size() && !HasFailure(); ++n) {
                    SCOPED_TRACE(clean.steps[n].operation + ": " + clean.steps[n].call + ": errno " +
                                 std::to_string(fault) + ", " + std::to_string(times) + " times");
                    Life life(exportedBefore, udevDelay,
                              [&, n = n](std::size_t step) { return step >= n && step - n < times ? fault : 0; });
                    const auto throwing = stepThatThrows(clean, n, fault, times);
                    expectNothingLeft(life, throwing && fault == EWOULDBLOCK &&
                                                beginsWith(clean.steps[*throwing].call, "lock "));
                    if (throwing) {
                        expectError(life, clean, *throwing, fault);
                    } else {
                        EXPECT_FALSE(life.error);
                        EXPECT_EQ(life.asked, clean.asked);
                        EXPECT_LE(life.steps.size(), clean.steps.size() + std::min<std::size_t>(times, 6));
                        EXPECT_LE(life.elapsed(), clean.elapsed() + 5ms);
                    }
                }
            }
        }
    }
}
