#include "frontpanelhw/fp/IndoorFpImpl.h"
#include "frontpanelhw/handler/GpioVectorCreator.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FakePins.h"
#include "tests/support/VirtualTime.h"

#include <gtest/gtest.h>

using namespace frontpanelhw;

TEST(IndoorFpImpl, BindsItsPinsInOrderAndStaysUsableWithoutItsLcd)
{
    FakePins pins;
    pins.refused = {"init 44 out 0", "2000000us"};
    CapturedOutput output;
    const VirtualTime time([&](const std::string& sleep) { return pins.happen(sleep); });
    fp::IndoorFpImpl panel(pins, 10, 20, 40, 1, 2, {0, 22}, {1});
    EXPECT_EQ(
        pins.take(),
        "create export 20 create export 21 init 20 inverted out 0 init 21 out 1 create export 10 init 10 in 0 10? "
        "create create create create create create create create create create create create create create "
        "export 40 export 41 export 42 export 43 export 44 export 45 export 46 export 47 export 48 "
        "export 49 export 50 export 51 export 52 export 22 init 40 out 0 init 41 out 0 init 42 out 0 "
        "init 43 out 0 init 44 out 0 init 45 out 0 init 46 out 0 init 47 out 0 init 48 out 0 "
        "init 49 inverted out 0 init 50 inverted out 0 init 51 inverted out 0 init 52 inverted out 0 "
        "init 22 inverted out 0");
    EXPECT_EQ(output.take(), "! ERROR: failed to initialize one or more gpio(s)\nINFO: status register: 0 0x0\n");
    EXPECT_TRUE(static_cast<fp::FpBase&>(panel).start(true, 2));
    panel.stop();
    EXPECT_EQ(pins.take().rfind("20=1 21=1 2000000us 1000000us 20=0 21=1 ", 0), 0U) << "interrupted halfway";
    EXPECT_FALSE(panel.isRunning() || panel.setContrast(0) || panel.setLed(2, true));
    pins.broken = {"22=1"};
    EXPECT_FALSE(panel.restartDisplay()) << "the backlight stays off";
    handler::GpioVectorCreator leds(pins, 7, 1);
    EXPECT_EQ(&leds.createOnlyExported(), &leds.createOnlyExported()) << "in place";
    leds.deinit();
    EXPECT_NE(pins.take().find("delete 7 create export 7 deinit 7 delete 7"), std::string::npos);
    EXPECT_FALSE(panel.initController(nullptr) || panel.printBuffer(drawing::DisplayBuffer(3, 0)));
}
