#include "frontpanelhw/fp/IndoorFpImpl.h"
#include "frontpanelhw/lcd/Ra8803RegistersController.h"
#include "frontpanelhw/lcd/Ra8822LcdController.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FakeLcd.h"
#include "tests/support/FakePins.h"
#include "tests/support/VirtualTime.h"

#include <gtest/gtest.h>

using namespace frontpanelhw;

TEST(IndoorFpImpl, BindsItsPinsInOrderAndStaysUsableWithoutItsLcd)
{
    FakePins pins;
    pins.refused = {"init 44 out 0"};
    const CapturedOutput output;
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
    EXPECT_TRUE(panel.start(false, 0));
    EXPECT_FALSE(panel.isRunning() || static_cast<fp::FpBase&>(panel).isRunning());
}

TEST(LcdFp, TestsDisplayAndLampsBeforePollingFromBothSidesAndReturnsFalseWithoutAController)
{
    /** A display of 2 lines of 3 characters. */
    struct Panel : fp::IndoorFpImpl {
        explicit Panel(sysfs::ISysfsGpioFactory& factory) : IndoorFpImpl(factory, 30, 20, 40, 1, 2, {}, {1}) {}
        unsigned getChars() const override { return 3; }
        unsigned getLines() const override { return 2; }
    };
    FakePins pins;
    const CapturedOutput log;
    const VirtualTime time(VirtualTime::Others::Sleep, [&](const std::string& sleep) { return pins.happen(sleep); });
    FakeLcd bus{pins};
    Panel panel{pins};
    for (const bool baseSide : {false, true}) {
        EXPECT_TRUE(panel.initController(
            std::make_unique<lcd::Ra8822LcdController>(bus, std::make_unique<lcd::Ra8803RegistersController>(bus))));
        EXPECT_TRUE(panel.setContrast(100) && !panel.setContrast(101));
        pins.take();
        pins.refused = {"70=00", "BL=1", "12=A1", "2s"};
        EXPECT_TRUE(baseSide ? static_cast<fp::FpBase&>(panel).start(true, 2) : panel.start(true, 2));
        panel.stop();
        const std::string events = pins.take();
        EXPECT_EQ(events.rfind("60=00 70=00 70=10 10? 10=4B d20 d20 d20 BL=1 12=A1 20=1 21=1 2s 1s ", 0), 0U)
            << "the sleep was interrupted halfway: " << events;
        pins.refused.clear();
    }
    EXPECT_FALSE(panel.initController(nullptr) || panel.clear() || panel.printLine(0, drawing::DisplayLine(3)) ||
                 panel.printBuffer(drawing::DisplayBuffer(3, 2)) || panel.resetController() || panel.swapPage() ||
                 panel.setBacklight(true) || panel.setContrast(0));
    panel.fullfillDisplay();
    EXPECT_EQ(pins.take(), "");
}
