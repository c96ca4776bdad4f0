#include "frontpanelhw/FrontPanelType.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FakePins.h"

#include <gtest/gtest.h>

#include <string>

using namespace frontpanelhw;

TEST(PanelType, IsReadFromFourLines)
{
    const struct {
        const char* levels; ///< of the lines 16 to 19
        FrontPanelType type;
        std::string log, broken = "";
    } cases[] = {{"1010", FrontPanelType::Outdoor, "INFO: detected outdoor front panel type\n"},
                 {"0101", FrontPanelType::Unknown, "WARNING: detected unknown front panel type: a\n"},
                 {"0101", FrontPanelType::Outdoor,
                  "! ERROR: unable to read led gpio for HW ID check: 16\nINFO: detected outdoor front panel type\n",
                  "16?"}};
    for (const auto& c : cases) {
        FakePins pins;
        CapturedOutput output;
        std::cout << std::hex;
        for (unsigned i = 0; i < 4; ++i) {
            pins.levels.at(16 + i) = c.levels[i] == '1';
        }
        pins.broken = {c.broken};
        EXPECT_EQ(detectType(pins, 16), c.type);
        EXPECT_EQ(output.take(), c.log);
        EXPECT_EQ(pins.take(), "create export 16 create export 17 create export 18 create export 19 "
                               "init 16 in 0 init 17 in 0 init 18 in 0 init 19 in 0 16? 17? 18? 19? "
                               "delete 16 delete 17 delete 18 delete 19");
    }
}
