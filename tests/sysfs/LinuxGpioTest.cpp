#include "sysfs/LinuxGpio.h"

#include "sysfs/LinuxGpioFactory.h"
#include "sysfs/SysfsGpioFactory.h"
#include "sysfs/SystemCalls.h"
#include "tests/sysfs/FakeKernel.h"
#include "tests/sysfs/PinLife.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <system_error>
#include <unistd.h>

namespace {

using sysfs::PinDirectionEn;
using tests::errorOf;
using tests::live;

const std::string root = "/sys/class/gpio";

TEST(LinuxGpio, LivesOnTheFewestSystemCallsAndUnlocksTheLineLast)
{
    FakeKernel kernel;
    kernel.line.level = '1';
    EXPECT_TRUE(live(*sysfs::LinuxGpioFactory(root, kernel).create()));
    const std::string taken = "open export w+e; write export 40; close export; "
                              "open gpio40/direction w+e; open gpio40/value rw+e; lock gpio40/value 6; ";
    const std::string polarity = "open gpio40/active_low w+e; write gpio40/active_low 1; close gpio40/active_low; ";
    const std::string used = polarity +
                             "write gpio40/direction low; write gpio40/direction in; write gpio40/direction low; "
                             "write gpio40/value 0; write gpio40/direction in; write gpio40/direction high; " +
                             polarity + "write gpio40/direction in; write gpio40/direction low; read gpio40/value; ";
    const std::string released = "open unexport w+e; write unexport 40; close unexport; "
                                 "close gpio40/value; close gpio40/direction; ";
    EXPECT_EQ(kernel.log, taken + used + released);
    kernel.log.clear();
    sysfs::LinuxGpio(root, kernel).exportGpio(40);
    EXPECT_EQ(kernel.log, taken + released);
}

TEST(LinuxGpio, SaysWhatFailedAndWhy)
{
    const struct {
        std::string verb, file;
        int injected, error;
        std::string hint;
    } cases[] = {
        {"open", "export", ENOENT, ENOENT, " (this kernel lacks the sysfs GPIO interface, CONFIG_GPIO_SYSFS)"},
        {"open", "export", EACCES, EACCES, " (run as root or in the group that owns the file)"},
        {"write", "export", EINVAL, EINVAL,
         " (no such GPIO; /sys/class/gpio/gpiochip*/base and ngpio show which exist)"},
        {"write", "export", EBUSY, EBUSY, " (the kernel or a driver holds the line, see /sys/kernel/debug/gpio)"},
        {"open", "gpio40/direction", ENOENT, ENOENT, " (the line has gone, or its direction is fixed)"},
        {"lock", "gpio40/value", EWOULDBLOCK, EBUSY, " (in use by another process or pin object)"},
        {"write", "gpio40/value", EPERM, EPERM, " (the line is an input)"},
        {"read", "gpio40/value", ENODEV, ENODEV, " (something else has unexported the line)"},
        {"read", "gpio40/value", FakeKernel::partly, EIO, " (neither 0 nor 1)"},
        {"write", "unexport", FakeKernel::partly, EIO, " (only 1 of 2 bytes)"},
        {"write", "gpio40/direction", EIO, EIO, ""},
    };
    for (const auto& row : cases) {
        FakeKernel kernel;
        kernel.fault = [&row](const std::string& call) {
            return call.rfind(row.verb + ' ' + row.file, 0) == 0 ? row.injected : 0;
        };
        const std::system_error error = errorOf([&] { live(*sysfs::LinuxGpioFactory(root, kernel).create()); });
        EXPECT_EQ(error.what(), "GPIO 40: cannot " + row.verb + " /sys/class/gpio/" + row.file + row.hint + ": " +
                                    std::generic_category().message(row.error));
        EXPECT_EQ(error.code().value(), row.error);
        EXPECT_EQ(kernel.line.exported, row.verb == "lock" || row.file == "unexport"); // another's, or stuck
    }
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
    EXPECT_EQ(text.rfind("GPIO 4294967295: ", 0), 0U) << text;
}

} // namespace
