#include "frontpanelhw/FrontPanelType.h"
#include "frontpanelhw/fp/FpBase.h"
#include "frontpanelhw/lcd/LcdRa8822.h"
#include "frontpanelhw/lcd/LcdRa8822GpioCreator.h"
#include "sysfs/ISysfsGpio.h"
#include "sysfs/ISysfsGpioFactory.h"
#include "sysfs/LinuxGpioFactory.h"
#include "sysfs/PinDirectionEn.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/VirtualTime.h"
#include "tests/sysfs/FakeKernel.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

// Lets every system call of a pin's or panel's life fail in every way, and compares what becomes of it with what the
// headers of sysfs/ promise, which is stated below as a table of rules.
namespace {

using namespace std::chrono_literals;
using sysfs::PinDirectionEn;

const std::string root = "/sys/class/gpio/";

/** A system call and the operation on a pin that made it. */
struct Step {
    std::string operation;
    unsigned gpio;
    std::string call;
};

/** What one life did. */
struct Watch {
    explicit Watch(bool exportedBefore, std::chrono::milliseconds udevDelay)
    {
        // The lines of all lives. One more exists than any of them uses.
        for (unsigned number = 40; number < 55; ++number) {
            kernel.lines[number].exported = exportedBefore;
            kernel.lines[number].udevDelay = udevDelay;
            kernel.lines[number].level = number % 2 == 0 ? '1' : '0';
        }
    }

    template <typename Operation>
    void during(const std::string& name, unsigned gpio, Operation operation)
    {
        current = {name, gpio, ""};
        try {
            operation();
        } catch (const std::system_error& error) {
            errors.emplace_back(current, error);
            throw;
        }
    }

    FakeKernel kernel;
    Step current;
    std::vector<Step> steps;
    std::vector<std::pair<Step, std::system_error>> errors; // that came out of pins
    std::map<unsigned, std::string> asked; // of lines, by operations that succeeded; as FakeKernel::driven
};

/** Tells the watch what is asked of a pin. */
class WatchedGpio : public sysfs::ISysfsGpio {
public:
    WatchedGpio(Watch& theWatch, std::unique_ptr<sysfs::ISysfsGpio> thePin) : watch(theWatch), pin(std::move(thePin)) {}

    ~WatchedGpio() override
    {
        watch.current = {"destroy", gpio, ""};
        pin.reset();
    }

    bool init(bool inverted, PinDirectionEn direction, bool initialValue) override
    {
        level = initialValue;
        watch.during("init", gpio, [&] { EXPECT_TRUE(pin->init(inverted, direction, initialValue)); });
        activeLow = inverted;
        return drive(direction);
    }

    void deinit() override
    {
        const Unbound afterwards{*pin, false};
        watch.during("deinit", gpio, [&] { pin->deinit(); });
    }

    void setDirection(PinDirectionEn direction) override
    {
        watch.during("setDirection", gpio, [&] { pin->setDirection(direction); });
        drive(direction);
    }

    bool setValue(bool value) override
    {
        level = value; // asked for, which a direction restores also when it fails now
        watch.during("setValue", gpio, [&] { EXPECT_TRUE(pin->setValue(value)); });
        return drive(PinDirectionEn::Output);
    }

    bool getValue() const override
    {
        bool value = false;
        watch.during("getValue", gpio, [&] { value = pin->getValue(); });
        EXPECT_EQ(value, watch.kernel.lines[gpio].level == '1');
        return value;
    }

    void exportGpio(unsigned gpioNumber) override
    {
        gpio = gpioNumber;
        const Unbound afterFailure{*pin, true};
        watch.during("export", gpio, [&] { pin->exportGpio(gpioNumber); });
    }

    unsigned getGpioNumber() const override { return pin->getGpioNumber(); }

private:
    /** At its end the pin has no line, always or when an exception is on its way. */
    struct Unbound {
        ~Unbound()
        {
            if (!onlyAfterFailure || std::uncaught_exceptions() > 0) {
                EXPECT_THROW(pin.getGpioNumber(), std::logic_error);
            }
        }
        sysfs::ISysfsGpio& pin;
        bool onlyAfterFailure;
    };

    bool drive(PinDirectionEn direction)
    {
        watch.asked[gpio] += direction == PinDirectionEn::Input ? "in; " : level != activeLow ? "high; " : "low; ";
        return true;
    }

    Watch& watch;
    std::unique_ptr<sysfs::ISysfsGpio> pin;
    unsigned gpio = 0;
    bool activeLow = false;
    bool level = false;
};

class WatchedFactory : public sysfs::ISysfsGpioFactory {
public:
    explicit WatchedFactory(Watch& theWatch) : watch(theWatch), factory("/sys/class/gpio", theWatch.kernel) {}

    std::unique_ptr<sysfs::ISysfsGpio> create() const override
    {
        return std::make_unique<WatchedGpio>(watch, factory.create());
    }

private:
    Watch& watch;
    sysfs::LinuxGpioFactory factory;
};

void liveAsPin(sysfs::ISysfsGpioFactory& factory)
{
    const auto pin = factory.create();
    pin->exportGpio(40);
    pin->init(true, PinDirectionEn::Output, true);
    pin->setValue(false);
    pin->getValue();
    pin->setDirection(PinDirectionEn::Input);
    pin->setDirection(PinDirectionEn::Output);
    pin->init(false, PinDirectionEn::Input, true);
    pin->setDirection(PinDirectionEn::Output);
    pin->deinit();
    pin->exportGpio(41);
    pin->init(false, PinDirectionEn::Output, false);
}

void liveAsPanel(sysfs::ISysfsGpioFactory& factory)
{
    frontpanelhw::fp::FpBase panel(factory, 40, 2, 42, 3, {1}, {1, 2});
    panel.setLed(0, true);
    panel.setAllLeds(true);
    panel.setLed(1, false);
    panel.setAllLeds(false);
    panel.stop();
}

void liveAsId(sysfs::ISysfsGpioFactory& factory)
{
    frontpanelhw::detectType(factory, 40);
}

void liveAsLcd(sysfs::ISysfsGpioFactory& factory)
{
    const auto pins = frontpanelhw::lcd::LcdRa8822GpioCreator(factory).create();
    unsigned number = 40;
    for (auto& pin : pins->dataGpios) {
        pin->exportGpio(number++);
    }
    for (auto* pin : {&pins->registerSelectGpio, &pins->chipSelectGpio, &pins->readStrobeGpio, &pins->writeStrobeGpio,
                      &pins->resetGpio, &pins->backlightGpio}) {
        (*pin)->exportGpio(number++);
    }
    frontpanelhw::lcd::LcdRa8822 lcd(*pins, true);
    unsigned char status = 0;
    if (lcd.init()) {
        lcd.writeCmd(0x5A, 0xC3);
        lcd.readStatus(status);
        lcd.writeCmd(0xA5, 0x3C);
    }
}

struct Life {
    const char* name;
    std::function<void(sysfs::ISysfsGpioFactory&)> live;
    std::vector<std::string> reported = {}; // operations on pins whose errors end on standard error
    std::size_t lines = 1;                  // at most that are held at once
    bool exportedBefore = false;
    std::chrono::milliseconds udevDelay{0};

    bool reports(const std::string& operation) const
    {
        return std::find(reported.begin(), reported.end(), operation) != reported.end();
    }
};

const Life lives[] = {
    {"pin", liveAsPin},
    {"pin, exported before", liveAsPin, {}, 1, true},
    {"pin, udev slow", liveAsPin, {}, 1, false, 20ms},
    {"keys and LEDs", liveAsPanel, {"getValue"}, 5},
    {"keys and LEDs, exported before", liveAsPanel, {"getValue"}, 5, true},
    {"panel ID", liveAsId, {"getValue"}, 4},
    {"LCD", liveAsLcd, {"setDirection", "setValue", "getValue"}, 14},
};

enum class End {
    Succeeds,      // as if nothing had happened
    Waits,         // succeeds when the next attempt does; throws after a second of them
    NeedsExported, // succeeds on a line that was exported before, if the kernel tells so; throws otherwise
    Throws,
};

/** The first rule that fits counts. What is empty or 0 fits everything. */
struct Rule {
    std::string operation, call;
    std::vector<int> errnoValues;
    End end;
    int thrown = 0;              // errno value, unless it is the one injected, or EIO for a short transfer
    std::string thrownCall = ""; // whose failure is told, unless it is the call's own
};

const Rule rules[] = {
    {"destroy", "", {}, End::Succeeds}, // a destructor has nobody to tell
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

struct Fault {
    int errnoValue; // or FakeKernel::partly
    std::size_t times;
};

constexpr std::size_t fromThenOn = 1000000;

std::vector<Fault> allFaults()
{
    std::vector<Fault> faults = {{EINTR, 1}, {EINTR, 3}};
    for (const int value : {EACCES, EAGAIN, EBUSY, EINVAL, EIO, ENODEV, ENOENT, EPERM, FakeKernel::partly}) {
        faults.push_back({value, 1});
        faults.push_back({value, fromThenOn});
    }
    return faults;
}

bool beginsWith(const std::string& text, const std::string& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

const Rule& ruleFor(const Step& step, int errnoValue)
{
    return *std::find_if(std::begin(rules), std::end(rules), [&](const Rule& rule) {
        const auto& values = rule.errnoValues;
        return (rule.operation.empty() || rule.operation == step.operation) && beginsWith(step.call, rule.call) &&
               (values.empty() || std::find(values.begin(), values.end(), errnoValue) != values.end());
    });
}

/** The step of a clean life at which the life with the fault, which begins at a step, shows an error. */
std::optional<std::size_t> stepThatThrows(const Life& life, const std::vector<Step>& clean, std::size_t first,
                                          const Fault& fault)
{
    const bool lasts = fault.times == fromThenOn;
    for (std::size_t i = first; i < (lasts ? clean.size() : first + 1); ++i) {
        const End end = ruleFor(clean[i], fault.errnoValue).end;
        if (end == End::Throws || (end == End::Waits && lasts) ||
            (end == End::NeedsExported && (lasts || !life.exportedBefore))) {
            return i;
        }
    }
    return {};
}

class Case {
public:
    Case(const Life& theLife, std::function<int(std::size_t)> faultOfStep)
        : life(theLife), watch(theLife.exportedBefore, theLife.udevDelay)
    {
        watch.kernel.fault = [this, faultOfStep = std::move(faultOfStep)](const std::string& call) {
            watch.current.call = call;
            watch.steps.push_back(watch.current);
            const int injected = faultOfStep(watch.steps.size() - 1);
            // A signal only delays what it interrupts.
            unexportsFailed += injected != 0 && injected != EINTR && isUnexport(call) ? 1 : 0;
            return injected;
        };
        CapturedOutput output;
        try {
            WatchedFactory factory(watch);
            const VirtualTime time;
            life.live(factory);
        } catch (const std::system_error& error) {
            escaped = error;
        } catch (const std::exception& error) {
            ADD_FAILURE() << error.what();
        }
        log = output.take();
    }

    /** Whatever happened. */
    void leavesNothingBehind(bool lockedByAnother)
    {
        EXPECT_EQ(watch.kernel.openFiles(), 0U);
        unsigned stillExported = 0;
        for (const auto& [number, line] : watch.kernel.lines) {
            EXPECT_TRUE(line.exported || !life.exportedBefore) << "GPIO " << number << " was exported before";
            stillExported += line.exported && !life.exportedBefore ? 1 : 0;
        }
        EXPECT_EQ(watch.kernel.driven, watch.asked);
        EXPECT_EQ(stillExported, unexportsFailed + (lockedByAnother ? 1 : 0));
    }

    void endsWell(const Case& clean, std::size_t times)
    {
        EXPECT_TRUE(watch.errors.empty()) << watch.errors.front().second.what();
        EXPECT_EQ(watch.asked, clean.watch.asked);
        EXPECT_EQ(log, clean.log);
        EXPECT_LE(watch.steps.size(), clean.watch.steps.size() + std::min<std::size_t>(times, 5 * life.lines + 1));
        EXPECT_LE(elapsed(), clean.elapsed() + 5ms);
    }

    /** @param step of the clean life, at which the call fails that is told */
    void endsWithError(const Case& clean, std::size_t step, int errnoValue)
    {
        const Step& failed = clean.watch.steps[step];
        const Rule& rule = ruleFor(failed, errnoValue);
        const int told = errnoValue == FakeKernel::partly ? EIO : errnoValue;
        ASSERT_FALSE(watch.errors.empty()) << "no error";
        const auto& [where, error] = watch.errors.front();
        EXPECT_EQ(where.operation, failed.operation);
        EXPECT_EQ(where.gpio, failed.gpio);
        isTold(error, failed.gpio, rule.thrownCall.empty() ? failed.call : rule.thrownCall,
               rule.thrown != 0 ? rule.thrown : told);

        // A life ends with the first error that is not only reported.
        const auto last = std::find_if(watch.errors.begin(), watch.errors.end(),
                                       [&](const auto& thrown) { return !life.reports(thrown.first.operation); });
        EXPECT_EQ(escaped.code().value(), last != watch.errors.end() ? last->second.code().value() : 0);
        const bool reported = life.reports(failed.operation);
        EXPECT_EQ(log.find("! ERROR: ") != std::string::npos, reported) << log;
        // Patience is for one file, and each of its attempts waits 5 ms for the next.
        EXPECT_LE(elapsed(), clean.elapsed() + 1005ms);
        EXPECT_TRUE(rule.end != End::Waits || elapsed() >= 1s);
        EXPECT_LE(watch.steps.size(), clean.watch.steps.size() + 200 + 3);
        if (!reported) {
            nothingButCleanUp(step);
        }
    }

    const Life& life;
    Watch watch;

private:
    static bool isUnexport(const std::string& call)
    {
        return beginsWith(call, "open unexport ") || beginsWith(call, "write unexport ");
    }

    static void isTold(const std::system_error& error, unsigned gpio, const std::string& call, int errnoValue)
    {
        const std::string text = error.what();
        const std::size_t gap = call.find(' ');
        const std::string file = call.substr(gap + 1, call.find(' ', gap + 1) - gap - 1);
        const std::string begin =
            "GPIO " + std::to_string(gpio) + ": cannot " + call.substr(0, gap) + ' ' + root + file;
        EXPECT_EQ(error.code().value(), errnoValue) << text;
        EXPECT_TRUE(beginsWith(text, begin + ": ") || beginsWith(text, begin + " (")) << text << "\n" << begin;
    }

    /** After the step: the same call until patience is over, a look whether the line is exported, and releases. */
    void nothingButCleanUp(std::size_t step) const
    {
        const std::string failed = watch.steps.at(step).call;
        std::size_t releases = 0;
        for (std::size_t i = step + 1; i < watch.steps.size(); ++i) {
            const std::string& call = watch.steps[i].call;
            const bool releasing = beginsWith(call, "close ") || isUnexport(call);
            EXPECT_TRUE(releasing || beginsWith(call, "access ") || (releases == 0 && call == failed)) << call;
            releases += releasing ? 1 : 0;
        }
        EXPECT_LE(releases, 5 * life.lines + 1);
    }

    std::chrono::nanoseconds elapsed() const { return const_cast<FakeKernel&>(watch.kernel).now().time_since_epoch(); }

    std::system_error escaped{0, std::generic_category()};
    std::size_t unexportsFailed = 0;
    std::string log;
};

TEST(GpioLayer, EndsAsPromisedWhicheverSystemCallFails)
{
    std::size_t total = 0;
    for (const Life& life : lives) {
        Case clean(life, [](std::size_t) { return 0; });
        clean.leavesNothingBehind(false);
        clean.endsWell(clean, 0);
        const std::vector<Step>& steps = clean.watch.steps;
        std::size_t cases = 0;
        for (const Fault& fault : allFaults()) {
            for (std::size_t n = 0; n < steps.size() && !HasFailure(); ++n) {
                SCOPED_TRACE(std::string(life.name) + ": " + steps[n].operation + ' ' + std::to_string(steps[n].gpio) +
                             ": " + steps[n].call + ": errno " + std::to_string(fault.errnoValue) + ", " +
                             std::to_string(fault.times) + " times");
                Case run(life,
                         [&](std::size_t step) { return step >= n && step - n < fault.times ? fault.errnoValue : 0; });
                const auto throwing = stepThatThrows(life, steps, n, fault);
                run.leavesNothingBehind(throwing && fault.errnoValue == EWOULDBLOCK &&
                                        beginsWith(steps[*throwing].call, "lock ") && !life.exportedBefore);
                if (throwing) {
                    run.endsWithError(clean, *throwing, fault.errnoValue);
                } else {
                    run.endsWell(clean, fault.times);
                }
                ++cases;
            }
        }
        std::printf("%-32s %4zu system calls, %5zu cases\n", life.name, steps.size(), cases);
        total += cases;
    }
    std::printf("%zu cases\n", total);
}

} // namespace
