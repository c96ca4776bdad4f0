#include "sysfs/LinuxGpio.h"

#include "sysfs/LinuxGpioFactory.h"
#include "sysfs/SysfsGpioFactory.h"
#include "sysfs/SystemCalls.h"
#include "tests/sysfs/FakeKernel.h"

#include <cctype>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using sysfs::PinDirectionEn;

const std::string root = "/sys/class/gpio";

/** Everything that can be done to a pin: an active-low output, off at first, turned on, made an input and back. */
void live(sysfs::ISysfsGpio& pin)
{
    pin.exportGpio(40);
    pin.init(true, PinDirectionEn::Output, false);
    pin.setValue(true);
    pin.getValue();
    pin.setDirection(PinDirectionEn::Input);
    pin.setDirection(PinDirectionEn::Output);
    pin.deinit();
}

/** @return the error that the action throws; without one, an error of code 0 */
template <typename Action>
std::system_error errorOf(Action action)
{
    try {
        action();
    } catch (const std::system_error& error) {
        return error;
    }
    return {0, std::generic_category()};
}

auto failing(const std::string& prefix, int error)
{
    return [=](const std::string& call) { return call.rfind(prefix, 0) == 0 ? error : 0; };
}

TEST(LinuxGpio, LivesOnTheFewestSystemCallsAndUnlocksTheLineLast)
{
    FakeKernel kernel;
    live(*sysfs::LinuxGpioFactory(root, kernel).create());
    const std::string taken = "open export w+e; pwrite export 40; close export; "
                              "open gpio40/direction w+e; open gpio40/value rw+e; flock gpio40/value 6; ";
    const std::string used = "open gpio40/active_low w+e; pwrite gpio40/active_low 1; close gpio40/active_low; "
                             "pwrite gpio40/direction high; pwrite gpio40/value 1; pread gpio40/value; "
                             "pwrite gpio40/direction in; pwrite gpio40/direction low; ";
    const std::string released = "open unexport w+e; pwrite unexport 40; close unexport; "
                                 "close gpio40/value; close gpio40/direction; ";
    EXPECT_EQ(kernel.log, taken + used + released);
    kernel.log.clear();
    sysfs::LinuxGpio(root, kernel).exportGpio(40);
    EXPECT_EQ(kernel.log, taken + released);
}

TEST(LinuxGpio, DrivesTheWireWithoutGlitchesAndKeepsTheLogicalLevel)
{
    // p and n initialise an output in positive and negative logic, q an input in positive, m in negative logic, all
    // with the level 0, capitals with 1; 0 and 1 set the level, i and o the direction.
    const struct {
        std::string actions, wire;
        bool level;
    } cases[] = {{"p", "L", false}, {"Pio0io", "HiHLiL", false}, {"n1io", "HLiL", true},  {"N", "L", true},
                 {"m", "i", true},  {"Qoi", "iHi", false},       {"pNPio", "LLHiH", true}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.actions);
        FakeKernel kernel;
        sysfs::LinuxGpio pin(root, kernel);
        pin.exportGpio(40);
        for (const char action : row.actions) {
            const char kind = static_cast<char>(std::tolower(action));
            const bool input = kind == 'i' || kind == 'q' || kind == 'm';
            const PinDirectionEn direction = input ? PinDirectionEn::Input : PinDirectionEn::Output;
            if (kind == 'i' || kind == 'o') {
                pin.setDirection(direction);
            } else {
                EXPECT_TRUE(std::isdigit(action) ? pin.setValue(action == '1')
                                                 : pin.init(kind == 'n' || kind == 'm', direction, kind != action));
            }
        }
        EXPECT_EQ(kernel.lines[40].history, row.wire);
        EXPECT_EQ(pin.getValue(), row.level);
    }
}

TEST(LinuxGpio, AdoptsWhatWasLeftBehindRefusesWhatIsInUseAndWaitsForAccess)
{
    const auto denied = failing("open export", EACCES);
    const struct {
        bool heldByDriver, exported;
        int lockedBy;
        std::chrono::milliseconds udevDelay, waited;
        std::function<int(const std::string&)> fault;
        int error;
    } cases[] = {
        {false, true, 0, 0s, 0s, failing("", 0), 0},     {false, true, 0, 0s, 0s, denied, 0},
        {false, true, 7, 0s, 0s, failing("", 0), EBUSY}, {true, false, 0, 0s, 0s, failing("", 0), EBUSY},
        {false, false, 0, 0s, 0s, denied, EACCES},       {false, false, 0, 0s, 0s, failing("flock", ENOLCK), 0},
        {false, false, 0, 1s, 1s, failing("", 0), 0},    {false, false, 0, 2s, 1s, failing("", 0), EACCES}};
    for (const auto& row : cases) {
        SCOPED_TRACE(&row - cases);
        FakeKernel kernel;
        kernel.fault = row.fault;
        kernel.udevDelay = row.udevDelay;
        FakeKernel::Line& line =
            kernel.lines[40] = {row.heldByDriver, row.exported, false, false, false, row.lockedBy, {}, {}};
        EXPECT_EQ(errorOf([&] { sysfs::LinuxGpio(root, kernel).exportGpio(40); }).code().value(), row.error);
        EXPECT_EQ(kernel.now().time_since_epoch(), row.waited);
        EXPECT_EQ(line.exported, row.exported);
        EXPECT_EQ(line.history, "");
    }
}

TEST(LinuxGpio, SaysWhatFailedAndWhy)
{
    const struct {
        std::string call, verb, file;
        int injected, error;
        std::string hint;
    } cases[] = {
        {"open ", "open", "export", ENOENT, ENOENT, " (this kernel lacks the sysfs GPIO interface, CONFIG_GPIO_SYSFS)"},
        {"open ", "open", "export", EACCES, EACCES, " (run as root or in the group that owns the file)"},
        {"pwrite ", "write", "export", EINVAL, EINVAL,
         " (no such GPIO; /sys/class/gpio/gpiochip*/base and ngpio tell which there are)"},
        {"pwrite ", "write", "export", EBUSY, EBUSY,
         " (the kernel or a driver holds the line, see /sys/kernel/debug/gpio)"},
        {"open ", "open", "gpio40/direction", ENOENT, ENOENT, " (the line has gone, or its direction is fixed)"},
        {"flock ", "lock", "gpio40/value", EWOULDBLOCK, EBUSY, " (in use by another process or pin object)"},
        {"pwrite ", "write", "gpio40/value", EPERM, EPERM, " (the line is an input)"},
        {"pread ", "read", "gpio40/value", ENODEV, ENODEV, " (something else has unexported the line)"},
        {"pread ", "read", "gpio40/value", FakeKernel::partly, EIO, " (neither 0 nor 1)"},
        {"pwrite ", "write", "unexport", FakeKernel::partly, EIO, " (only 1 of 2 bytes)"},
        {"pwrite ", "write", "gpio40/direction", EIO, EIO, ""},
    };
    for (const auto& row : cases) {
        FakeKernel kernel;
        kernel.fault = failing(row.call + row.file, row.injected);
        const std::system_error error = errorOf([&] { live(*sysfs::LinuxGpioFactory(root, kernel).create()); });
        EXPECT_EQ(error.what(), "GPIO 40: cannot " + row.verb + " /sys/class/gpio/" + row.file + row.hint + ": " +
                                    std::generic_category().message(row.error));
        EXPECT_EQ(error.code().value(), row.error);
        EXPECT_EQ(kernel.lines[40].exported, row.verb == "lock" || row.file == "unexport"); // another's, or stuck
    }
}

TEST(LinuxGpio, GoesOnAfterSignals)
{
    FakeKernel kernel;
    kernel.lines[40].exported = true;
    kernel.fault = [interrupted = false](const std::string& call) mutable {
        interrupted = !interrupted && call.rfind("close", 0) != 0;
        return interrupted ? EINTR : 0;
    };
    sysfs::LinuxGpio pin(root, kernel);
    EXPECT_NO_THROW(live(pin));
    EXPECT_EQ(kernel.lines[40].history, "HLiL");
}

TEST(LinuxGpio, LeavesNothingBehindWhicheverCallFails)
{
    for (const int injected : {FakeKernel::partly, EACCES, EBUSY, EINVAL, EIO, ENODEV, ENOENT, ENOMEM, EPERM}) {
        std::string failed = "none yet";
        for (int nth = 1; !failed.empty(); ++nth) {
            FakeKernel kernel;
            failed.clear();
            kernel.fault = [&, count = 0](const std::string& call) mutable {
                failed = ++count == nth ? call : failed;
                return count == nth ? injected : 0;
            };
            const int error = errorOf([&] { live(*sysfs::LinuxGpioFactory(root, kernel).create()); }).code().value();
            SCOPED_TRACE("errno " + std::to_string(injected) + " from " + failed);
            const bool retried =
                failed.rfind("open gpio40", 0) == 0 && (injected == EACCES || injected == EPERM || injected == ENOENT);
            const bool throws = !retried && (failed[0] == 'o' || failed[0] == 'p'); // not what close and flock report
            EXPECT_EQ(error, !throws ? 0 : injected == FakeKernel::partly ? EIO : injected);
            EXPECT_EQ(kernel.lines[40].exported, throws && failed.find("unexport") != std::string::npos);
            EXPECT_EQ(kernel.openFiles(), 0U);
        }
    }
}

TEST(LinuxGpio, RefusesCallsOutOfOrderAndCanBeBoundAnew)
{
    FakeKernel kernel;
    sysfs::LinuxGpio pin(root, kernel);
    EXPECT_THROW(pin.init(false, PinDirectionEn::Output, false), std::logic_error);
    EXPECT_THROW(pin.setValue(true), std::logic_error);
    EXPECT_THROW(pin.getValue(), std::logic_error);
    EXPECT_THROW(pin.getGpioNumber(), std::logic_error);
    pin.exportGpio(40);
    EXPECT_THROW(pin.setDirection(PinDirectionEn::Output), std::logic_error);
    EXPECT_THROW(pin.exportGpio(41), std::logic_error);
    pin.deinit();
    pin.deinit();
    pin.exportGpio(41);
    EXPECT_EQ(pin.getGpioNumber(), 41U);
    EXPECT_NE(kernel.lines[40].exported, kernel.lines[41].exported);
}

TEST(SystemCalls, TreatRealFilesAsTheKernelsOwn)
{
    namespace fs = std::filesystem;
    const fs::path directory = fs::temp_directory_path() / ("sysfs_tests." + std::to_string(getpid()));
    fs::create_directories(directory / "gpio40");
    for (const char* name : {"unexport", "gpio40/direction", "gpio40/value", "gpio40/active_low", "export"}) {
        std::ofstream(directory / name) << "0023\n";
    }
    const sysfs::LinuxGpioFactory factory(directory, sysfs::SystemCalls::instance());
    const auto pin = factory.create();
    pin->exportGpio(40);
    pin->init(false, PinDirectionEn::Output, true);
    EXPECT_EQ(errorOf([&] { factory.create()->exportGpio(40); }).code().value(), EBUSY);
    EXPECT_TRUE(pin->setValue(false) && pin->setValue(true) && pin->getValue() && pin->getValue());
    std::ifstream value(directory / "gpio40/value");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(value), {}), "1023\n");
    std::ofstream(directory / "gpio40/value") << "7\n";
    EXPECT_EQ(errorOf([&] { pin->getValue(); }).code().value(), EIO);
    pin->deinit();
    EXPECT_NO_THROW(factory.create()->exportGpio(40));
    fs::remove(directory / "export");
    EXPECT_EQ(errorOf([&] { pin->exportGpio(40); }).code().value(), ENOENT);
    EXPECT_NE(sysfs::SystemCalls::instance().access((directory / "export").c_str(), F_OK), 0);
    fs::remove_all(directory);
}

TEST(SysfsGpioFactory, MakesPinsOfTheRunningKernel)
{
    const std::string text = errorOf([] { sysfs::SysfsGpioFactory().create()->exportGpio(4294967295U); }).what();
    EXPECT_EQ(text.rfind("GPIO 4294967295: cannot ", 0), 0U) << text;
    EXPECT_NE(text.find(" /sys/class/gpio/export "), std::string::npos) << text;
}

} // namespace
