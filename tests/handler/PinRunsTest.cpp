#include "frontpanelhw/FrontPanelType.h"
#include "frontpanelhw/handler/GpioVectorCreator.h"
#include "frontpanelhw/handler/LedCreator.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FakePins.h"

#include <gtest/gtest.h>

using namespace frontpanelhw;
using sysfs::PinDirectionEn;

TEST(GpioVectorCreator, ExportsEachPinBeforeItMakesTheNext)
{
    const FakePins pins;
    handler::GpioVectorCreator creator(pins, 7, 2);
    EXPECT_EQ(pins.take(), "");
    auto& gpios = creator.createAndInit(true, PinDirectionEn::Output, true);
    EXPECT_EQ(pins.take(), "create export 7 create export 8 init 7 inverted out 1 init 8 inverted out 1");

    EXPECT_EQ(&creator.createOnlyExported(), &gpios);
    EXPECT_EQ(pins.take(), "deinit 7 deinit 8 delete 7 delete 8 create export 7 create export 8");
    EXPECT_EQ(gpios.size(), 2U);

    creator.deinit();
    EXPECT_EQ(pins.take(), "deinit 7 deinit 8 delete 7 delete 8");
    creator.deinit();
    EXPECT_EQ(pins.take(), "");
}

TEST(GpioVectorCreator, DeletesPinsWithoutDeinit)
{
    const FakePins pins;
    {
        handler::GpioVectorCreator(pins, 3, 1).createOnlyExported();
        handler::GpioVectorCreator(pins, 5, 0).createAndInit(false, PinDirectionEn::Input, false);
    }
    EXPECT_EQ(pins.take(), "create export 3 delete 3");
}

TEST(GpioVectorCreator, KeepsThePinsMadeBeforeAFailure)
{
    FakePins pins;
    pins.breakOn("export 9");
    pins.refuse("init 7 in 0");
    {
        handler::GpioVectorCreator creator(pins, 7, 4);
        EXPECT_THROW(creator.createOnlyExported(), Broken);
        EXPECT_EQ(pins.take(), "create export 7 create export 8 create export 9");
    }
    EXPECT_EQ(pins.take(), "delete 7 delete 8 delete 9");
    handler::GpioVectorCreator refused(pins, 7, 2);
    EXPECT_EQ(refused.createAndInit(false, PinDirectionEn::Input, false).size(), 2U);
    EXPECT_EQ(pins.take(), "create export 7 create export 8 init 7 in 0 init 8 in 0");
}

TEST(LedCreator, GivesEachLedItsPolarityAndLevel)
{
    FakePins pins;
    {
        handler::LedCreator leds(pins, 20, 4);
        EXPECT_EQ(leds.create({1, 1, 9}, {0, 3, 20}).size(), 4U);
    }
    EXPECT_EQ(pins.take(), "create export 20 create export 21 create export 22 create export 23 "
                           "init 20 out 1 init 21 inverted out 0 init 22 out 0 init 23 out 1 "
                           "delete 20 delete 21 delete 22 delete 23");
}

TEST(PanelType, IsReadFromFourLines)
{
    struct Case {
        std::vector<unsigned> high;
        std::vector<unsigned> broken;
        FrontPanelType type;
        const char* out;
        const char* err;
    };
    const char* const outdoor = "INFO: detected outdoor front panel type\n";
    const char* const indoor = "INFO: detected indoor front panel type\n";
    const Case cases[] = {
        {{16, 18}, {}, FrontPanelType::Outdoor, outdoor, ""},
        {{16, 17, 18, 19}, {}, FrontPanelType::Indoor, indoor, ""},
        {{}, {}, FrontPanelType::Unknown, "WARNING: detected unknown front panel type: 0\n", ""},
        {{17, 19}, {}, FrontPanelType::Unknown, "WARNING: detected unknown front panel type: a\n", ""},
        {{17, 19}, {16}, FrontPanelType::Outdoor, outdoor, "ERROR: unable to read led gpio for HW ID check: 16\n"},
        {{16, 17, 18},
         {19},
         FrontPanelType::Unknown,
         "WARNING: detected unknown front panel type: 7\n",
         "ERROR: unable to read led gpio for HW ID check: 19\n"},
    };
    for (const Case& c : cases) {
        FakePins pins;
        for (const unsigned gpio : c.high) {
            pins.setLevel(gpio, true);
        }
        for (const unsigned gpio : c.broken) {
            pins.breakOn(std::to_string(gpio) + "?");
        }
        const CapturedOutput output;
        std::cout << std::hex;
        EXPECT_EQ(detectType(pins, 16), c.type);
        EXPECT_EQ(output.out(), c.out);
        EXPECT_EQ(output.err(), c.err);
        EXPECT_EQ(pins.take(), "create export 16 create export 17 create export 18 create export 19 init 16 in 0 "
                               "init 17 in 0 init 18 in 0 init 19 in 0 16? 17? 18? 19? "
                               "delete 16 delete 17 delete 18 delete 19");
    }
}

TEST(PanelType, LetsFailuresOfTheSetUpPass)
{
    FakePins pins;
    pins.breakOn("init 18 in 0");
    EXPECT_THROW(detectType(pins, 16), Broken);
    EXPECT_EQ(pins.take(), "create export 16 create export 17 create export 18 create export 19 init 16 in 0 "
                           "init 17 in 0 init 18 in 0 delete 16 delete 17 delete 18 delete 19");
}
