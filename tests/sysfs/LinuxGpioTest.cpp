#include "sysfs/LinuxGpio.h"

#include "sysfs/SystemCalls.h"
#include "tests/sysfs/FakeKernel.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <unistd.h>

TEST(LinuxGpio, TreatsRealFilesAsTheKernelsOwn)
{
    namespace fs = std::filesystem;
    const fs::path directory = fs::temp_directory_path() / ("sysfs_tests." + std::to_string(getpid()));
    fs::create_directories(directory / "gpio40");
    for (const char* name : {"unexport", "gpio40/direction", "gpio40/value", "gpio40/active_low", "export"}) {
        std::ofstream(directory / name) << "0023\n";
    }
    const auto exportLine = [&] { return sysfs::exportLinuxGpio(sysfs::SystemCalls::instance(), directory, 40, 40); };
    auto pin = exportLine();
    EXPECT_EQ(errorOf(exportLine), "GPIO 40: cannot lock " + (directory / "gpio40/value").string() +
                                       " (in use by another process or pin object): " + std::strerror(EBUSY));
    EXPECT_EQ(sysfs::SystemCalls::instance().list(directory.c_str()).size(), 5U) << "with . and ..";
    pin->setValue(true);
    EXPECT_TRUE(pin->getValue() && pin->getValue());
    std::ifstream value(directory / "gpio40/value");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(value), {}), "1023\n");
    std::ofstream(directory / "gpio40/value") << "7\n";
    EXPECT_NE(errorOf([&] { pin->getValue(); }).find("neither 0 nor 1"), std::string::npos);
    pin.reset();
    EXPECT_EQ(errorOf(exportLine), "");
    fs::remove_all(directory);
    EXPECT_NE(errorOf(exportLine).find(std::strerror(ENOENT)), std::string::npos);
}
