#include "tools/Commands.h"

#include <gtest/gtest.h>

TEST(Commands, DescribeChipsAsAFileThatGivesThemTheNumbersTheyHave)
{
    EXPECT_EQ(tools::describeChips({{"gpiochip0", "30200000.gpio", 32, {}, 512, "file", ""},
                                    {"gpiochip1", "twin", 8, {}, 544, "file", ""},
                                    {"gpiochip2", "twin", 1, {}, 552, "file", ""},
                                    {"", "#", 0, {}, 8, "file", ""},
                                    {"gpiochip4", "late", 4, {}, {}, "", ""}}),
              "# first number, chip\n"
              "512 30200000.gpio # to 543 by file: gpiochip0, label '30200000.gpio', 32 lines\n"
              "544 gpiochip1 # to 551 by file: gpiochip1, label 'twin', 8 lines\n"
              "552 gpiochip2 # to 552 by file: gpiochip2, label 'twin', 1 lines\n"
              "# 8  # to 8 by file: not found in /dev, label '#', cannot be read\n"
              "# no numbers: gpiochip4, label 'late', 4 lines");
}
