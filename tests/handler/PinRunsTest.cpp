#include "frontpanelhw/FrontPanelType.h"
#include "frontpanelhw/handler/GpioVectorCreator.h"
#include "frontpanelhw/handler/LedCreator.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FakePins.h"

#include <gtest/gtest.h>

using namespace frontpanelhw;

TEST(GpioVectorCreator, ConfiguresAllPinsEvenIfOneRefusesAndReplacesThemInPlace)
{
    FakePins pins;
    pins.refused = {"init 7 inverted out 1"};
    handler::GpioVectorCreator creator(pins, 7, 2);
    auto& gpios = creator.createAndInit(true, sysfs::PinDirectionEn::Output, true);
    EXPECT_EQ(pins.take(), "create export 7 create export 8 init 7 inverted out 1 init 8 inverted out 1");
    EXPECT_EQ(&creator.createOnlyExported(), &gpios);
    EXPECT_EQ(gpios.size(), 2U);
    creator.deinit();
    creator.deinit();
    EXPECT_EQ(pins.take(), "deinit 7 deinit 8 delete 7 delete 8 create export 7 create export 8 "
                           "deinit 7 deinit 8 delete 7 delete 8");
}

TEST(LedCreator, GivesEachLedItsPolarityAndLevel)
{
    FakePins pins;
    EXPECT_EQ(handler::LedCreator(pins, 20, 4).create({1, 1, 9}, {0, 3, 20}).size(), 4U);
    EXPECT_EQ(pins.take(), "create export 20 create export 21 create export 22 create export 23 "
                           "init 20 out 1 init 21 inverted out 0 init 22 out 0 init 23 out 1 "
                           "delete 20 delete 21 delete 22 delete 23");
}

TEST(PanelType, IsReadFromFourLines)
{
    const std::string failure = "! ERROR: unable to read led gpio for HW ID check: 16\n";
    const std::string outdoor = "INFO: detected outdoor front panel type\n";
    const struct {
        unsigned levels; ///< of the lines 16 to 19, the first in bit 0
        FrontPanelType type;
        std::string log, broken = "";
    } cases[] = {{5, FrontPanelType::Outdoor, outdoor},
                 {15, FrontPanelType::Indoor, "INFO: detected indoor front panel type\n"},
                 {10, FrontPanelType::Unknown, "WARNING: detected unknown front panel type: a\n"},
                 {10, FrontPanelType::Outdoor, failure + outdoor, "16?"}};
    FakePins pins;
    CapturedOutput output;
    (std::cout << std::hex, std::cerr << std::hex);
    for (const auto& c : cases) {
        for (unsigned i = 0; i < 4; ++i) {
            pins.levels.at(16 + i) = (c.levels >> i & 1U) != 0;
        }
        pins.broken = {c.broken};
        EXPECT_EQ(detectType(pins, 16), c.type);
        EXPECT_EQ(output.take(), c.log);
        EXPECT_EQ(pins.take(), "create export 16 create export 17 create export 18 create export 19 "
                               "init 16 in 0 init 17 in 0 init 18 in 0 init 19 in 0 16? 17? 18? 19? "
                               "delete 16 delete 17 delete 18 delete 19");
    }
}
