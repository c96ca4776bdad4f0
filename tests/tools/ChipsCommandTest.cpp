#include "tools/ChipsCommand.h"

#include "sysfs/GpioChips.h"
#include "tests/sysfs/FakeKernel.h"

#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace {

TEST(ChipsCommand, ListsChipsAsAFileThatGivesThemTheNumbersTheyHave)
{
    FakeKernel kernel;
    const auto none = std::optional<unsigned>();
    kernel.chips = {{"gpiochip0", "30200000.gpio", 32, 512},
                    {"gpiochip1", "twin", 8, 544, "i2c"},
                    {"gpiochip2", "twin", 8, 552, ""},
                    {"gpiochip3", "", 4, 560, "spi"},
                    {"gpiochip4", "late", 4, 0, "usb", none}};
    const std::string listed = tools::describeChips(sysfs::readGpioChips(kernel));
    EXPECT_EQ(listed.substr(0, listed.find('\n', 40)),
              "# first number, chip\n"
              "512 30200000.gpio # to 543 by /sys/class/gpio/gpiochip512/base: gpiochip0, label '30200000.gpio', 32 "
              "lines");
    EXPECT_NE(listed.find("\n# no numbers: gpiochip4, label 'late', 4 lines\n"), std::string::npos) << listed;
    for (auto& chip : kernel.chips) {
        chip.base = chip.base ? std::optional(*chip.base + 512) : none; // as by a newer kernel
    }
    kernel.files["/etc/sysfsgpio.conf"] = listed;
    for (const unsigned number : {512U, 543U, 544U, 552U, 563U}) {
        const sysfs::GpioLine line = sysfs::findGpioLine(kernel, number);
        EXPECT_EQ(*line.chip.sysfsBase + line.offset, number + 512);
    }
}

} // namespace
