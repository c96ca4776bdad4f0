#include "frontpanelhw/fp/IndoorFpImpl.h"
#include "frontpanelhw/lcd/Ra8806RegistersController.h"
#include "frontpanelhw/lcd/Ra8822LcdController.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FakeLcd.h"
#include "tests/support/RecordedWaits.h"

#include <gtest/gtest.h>

using namespace frontpanelhw;
using drawing::DisplayBuffer;
using drawing::DisplayLine;

namespace {

/** A display of 2 lines of 3 characters. */
class Panel : public fp::IndoorFpImpl {
public:
    explicit Panel(sysfs::ISysfsGpioFactory& factory) : IndoorFpImpl(factory, 30, 20, 40, 1, 1, {}, {}) {}
    unsigned getChars() const override { return 3; }
    unsigned getLines() const override { return 2; }
};

/** Records its end as the bus records its operations. */
class Controller : public lcd::Ra8822LcdController {
public:
    Controller(lcd::ILcd& bus, const Record& itsRecord)
        : Ra8822LcdController(bus, std::make_unique<lcd::Ra8806RegistersController>(bus)), record(itsRecord)
    {
    }
    ~Controller() override { record.happen("gone"); }

private:
    const Record& record;
};

/** The panel's controller and its pins have one record; page 1 is shown, the cursor is not yet known. */
class LcdFpTest : public testing::Test {
protected:
    LcdFpTest() { EXPECT_TRUE(install()); }
    bool install()
    {
        const bool ok = panel.initController(std::make_unique<Controller>(lcd, pins));
        events = pins.take();
        return ok;
    }
    CapturedOutput log;
    FakePins pins;
    RecordedWaits waits{[this](const std::string& wait) { return pins.happen(wait); }};
    FakeLcd lcd{pins};
    Panel panel{pins};
    std::string events;
};

} // namespace

TEST_F(LcdFpTest, InitialisesTheControllerThatItTakesOverAndReturnsFalseWithoutOne)
{
    pins.refused = {"BL=1"};
    EXPECT_FALSE(install());
    EXPECT_EQ(events.rfind("gone 00=08/FF ", 0), 0U) << events;
    EXPECT_FALSE(panel.initController(nullptr) || panel.clear() || panel.printLine(0, DisplayLine(3)) ||
                 panel.printBuffer(DisplayBuffer(3, 2)) || panel.resetController() || panel.swapPage());
    panel.fullfillDisplay();
    EXPECT_EQ(pins.take(), "gone");
}

TEST_F(LcdFpTest, PrintsEveryLineThenSwaps)
{
    DisplayBuffer buffer(2, 4);
    for (unsigned i = 0; i < 4; ++i) {
        buffer.setLineContent(i, u"ab");
    }
    EXPECT_TRUE(panel.printBuffer(buffer));
    EXPECT_EQ(pins.take(), "60=00 70=00 d61 d62 60=00 70=10 d61 d62 60=00 70=20 d61 d62 60=00 70=30 d61 d62 12=A1");
    EXPECT_TRUE(panel.printBuffer(DisplayBuffer(3, 0)));
    EXPECT_EQ(pins.take(), "12=92");
}

TEST_F(LcdFpTest, FillsTheDisplayBeforeTheLampTestFromBothSides)
{
    for (const bool baseSide : {false, true}) {
        EXPECT_TRUE(install());
        pins.refused = {"70=00", "BL=1", "12=A1"};
        EXPECT_TRUE(baseSide ? static_cast<fp::FpBase&>(panel).start(true, 1) : panel.start(true, 1));
        panel.stop();
        EXPECT_EQ(pins.take().rfind("60=00 70=00 70=10 10? 10=62 d20 d20 d20 BL=1 12=A1 20=1 1s 20=0 ", 0), 0U);
        EXPECT_TRUE(panel.start(false, 5));
        panel.stop();
        EXPECT_EQ(pins.take().find("70="), std::string::npos);
        pins.refused.clear();
    }
}

TEST_F(LcdFpTest, DarkensTheDisplayAfterAReset)
{
    EXPECT_TRUE(panel.resetController() && panel.printLine(1, DisplayLine(u"a")) && panel.clear());
    pins.refused = {"reset"};
    EXPECT_FALSE(panel.resetController());
    EXPECT_EQ(pins.take(), "reset BL=0 60=00 70=10 d61 F0? F0=0C reset");
}
