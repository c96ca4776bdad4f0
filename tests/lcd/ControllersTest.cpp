#include "frontpanelhw/lcd/Ra8803RegistersController.h"
#include "frontpanelhw/lcd/Ra8806RegistersController.h"
#include "frontpanelhw/lcd/Ra8822LcdController.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FakeLcd.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace frontpanelhw::lcd;
using frontpanelhw::drawing::DisplayLine;

namespace {

const std::string common = "11=20/FF 20=18/FF 21=1D/FF 30=2F/FF 31=2F/FF 80=64/FF E0=00/FF ";
const std::string ra8803Set =
    "00=C9/FF 01=B6/FF 02=00/FF 03=80/FF 10=6B/FF 12=A1/FF " + common +
    "40=00/FF 50=00/FF 41=00/FF 51=00/FF 60=00/FF 61=00/FF 70=00/FF 71=00/FF 72=C7/FF 81=00/FF 91=00/FF 90=1F/FF "
    "A0=00/0F A1=00/FF A2=00/FF A3=00/FF B0=18/FF B1=2F/FF C0=00/30 C1=08/0C D0=0C/FF F0=D4/FF F1=0F/FF";
const std::string ra8806Set = "00=08/FF 01=04/FF 10=42/FF " + common + "F0=04/FF";

DisplayLine inverted(const std::u16string& text, unsigned column)
{
    DisplayLine line(text);
    line.setInverted(column, column, true);
    return line;
}

class ControllersTest : public testing::Test {
protected:
    Record record;
    FakeLcd lcd{record};
    Ra8803RegistersController ra8803{lcd};
    Ra8806RegistersController ra8806{lcd};
    Ra8822LcdController controller{lcd, std::make_unique<Ra8806RegistersController>(lcd)};
    CapturedOutput log;
};

} // namespace

TEST_F(ControllersTest, WriteTheirWholeStartUpSetEvenIfWritesFail)
{
    EXPECT_EQ(record.take(), "");
    for (const char* failing : {"", "01=B6/FF", "01=04/FF", "80=64/FF", "F1=0F/FF", "F0=04/FF"}) {
        record.refused = {failing};
        const auto succeeds = [&](const std::string& set) {
            return *failing == '\0' || set.find(failing) == std::string::npos;
        };
        EXPECT_EQ(ra8803.initializeRegisterSettings(), succeeds(ra8803Set)) << failing;
        EXPECT_EQ(ra8806.initializeRegisterSettings(), succeeds(ra8806Set)) << failing;
        EXPECT_EQ(record.take(), ra8803Set + " " + ra8806Set);
    }
}

TEST_F(ControllersTest, SwitchDisplayAndContrast)
{
    EXPECT_TRUE(ra8803.enable(true) && ra8803.enable(false) && ra8806.enable(true) && ra8806.enable(false));
    for (const unsigned percent : {0U, 50U, 99U, 100U, 0xFFFFFFFFU}) {
        EXPECT_TRUE(ra8803.setContrast(percent) && ra8806.setContrast(percent));
    }
    EXPECT_EQ(record.take(), "00=CD 00=C9 00=0C 00=08 D0=00 D0=0F D0=1E D0=1F D0=28") << "the last one wraps around";
    record.refused = {"00=CD", "00=08", "D0=0F"};
    EXPECT_FALSE(ra8803.enable(true) || ra8806.enable(false) || ra8803.setContrast(50));
}

TEST_F(ControllersTest, InvertOnlyOnChange)
{
    struct Case {
        IRaController& profile;
        unsigned char normal;
        const char* accesses;
        const char* back;
    };
    for (const Case& c : {Case{ra8803, 0x6B, "10? 10? 10=4B 10? 10=6B 10? 10=6B", "10=6B"},
                          Case{ra8806, 0x42, "10? 10? 10=62 10? 10=42 10? 10=42", "10=42"}}) {
        lcd.registers[0x10] = c.normal;
        EXPECT_TRUE(c.profile.setInverted(false));
        lcd.initialized = false;
        EXPECT_FALSE(c.profile.setInverted(true));
        lcd.initialized = true;
        record.refused = {"10?"};
        EXPECT_FALSE(c.profile.setInverted(true));
        record.refused = {c.back};
        EXPECT_TRUE(c.profile.setInverted(true) && c.profile.setInverted(true));
        EXPECT_FALSE(c.profile.setInverted(false) || c.profile.setInverted(false)) << "tries again";
        EXPECT_EQ(record.take(), c.accesses);
    }
}

TEST_F(ControllersTest, PrepareTheDisplayEvenIfStepsFail)
{
    for (const std::string failing : {"", "status", "01=B6/FF", "12=92", "F0=DC", "00=CD", "D0=0F", "BL=1"}) {
        record.refused = {failing};
        EXPECT_EQ(Ra8822LcdController(lcd, std::make_unique<Ra8803RegistersController>(lcd)).init(),
                  failing.empty() || failing == "status");
        EXPECT_EQ(record.take(), ra8803Set + " F0? F0=DC 12=92 F0? F0=DC 00=CD D0=0F BL=1 status") << failing;
        std::cout << 16 << std::dec;
        EXPECT_EQ(log.take(), std::string("INFO: status register: ") + (failing == "status" ? "0" : "1") + " 0xa\n10");
    }
}

TEST_F(ControllersTest, RefuseAnUninitialisedBus)
{
    lcd.initialized = false;
    EXPECT_FALSE(controller.clear() || controller.enable(true) || controller.setCursor(0, 0) ||
                 controller.setContrast(1) || controller.swapPage() || controller.printLine(0, DisplayLine(1)) ||
                 controller.isInitialized() || controller.init());
    EXPECT_EQ(log.take(), "INFO: status register: 0 0x0\n");
    lcd.initialized = true;
    EXPECT_TRUE(controller.swapPage());
    EXPECT_EQ(record.take(), ra8806Set + " BL=1 12=92") << "every step of init runs, refused swaps change nothing";
}

TEST_F(ControllersTest, MoveTheCursorOnlyWhereItDoesNotStand)
{
    record.refused = {"60=07", "70=30"};
    EXPECT_TRUE(controller.setCursor(0, 1) && controller.setCursor(0, 1) && controller.setCursor(5, 1));
    EXPECT_TRUE(controller.setCursor(5, 2));
    EXPECT_FALSE(controller.setCursor(7, 4));
    EXPECT_FALSE(controller.setCursor(7, 3));
    EXPECT_TRUE(controller.setCursor(7, 3) && controller.setCursor(256 + 9, 16));
    EXPECT_EQ(record.take(), "60=00 70=10 60=05 70=20 60=07 70=30 60=09 70=00");
}

TEST_F(ControllersTest, PrintCellByCellUpToAFailure)
{
    lcd.registers[0x10] = 0x42;
    EXPECT_TRUE(controller.printLine(1, inverted(u"A\u0141c", 1)));
    EXPECT_EQ(record.take(), "60=00 70=10 d41 10? 10=62 d41 10? 10=42 d63");
    EXPECT_TRUE(controller.printLine(1, DisplayLine(27)));
    const std::string cells = record.take();
    EXPECT_EQ(std::count(cells.begin(), cells.end(), 'd'), 27) << "nothing is clipped";
    EXPECT_TRUE(controller.printLine(1, DisplayLine()) && controller.setCursor(0, 1));

    record.refused = {"d62", "10?"};
    EXPECT_FALSE(controller.printLine(1, DisplayLine(u"abc")));
    EXPECT_TRUE(controller.setCursor(1, 1)) << "the cell that failed did not move the cursor";
    EXPECT_FALSE(controller.printLine(2, inverted(u"abc", 1)));
    record.refused = {"60=00"};
    EXPECT_FALSE(controller.printLine(2, DisplayLine(u"abc")));
    EXPECT_EQ(record.take(), "60=00 d61 d62 60=00 70=20 d61 10? 60=00");
}

TEST_F(ControllersTest, SwapClearAndCheckTheContrast)
{
    Ra8822LcdController onRa8803(lcd, std::make_unique<Ra8803RegistersController>(lcd));
    record.refused = {"12=A1"};
    EXPECT_TRUE(onRa8803.swapPage());
    EXPECT_FALSE(onRa8803.swapPage());
    EXPECT_TRUE(onRa8803.swapPage()) << "pages change also when the write fails";
    EXPECT_TRUE(onRa8803.setContrast(100));
    EXPECT_FALSE(onRa8803.setContrast(101) || onRa8803.setContrast(300));
    lcd.registers[0xF0] = 0xD4;
    EXPECT_TRUE(onRa8803.clear());
    record.refused = {"F0?"};
    EXPECT_FALSE(onRa8803.clear());
    EXPECT_EQ(record.take(), "12=92 12=A1 12=92 D0=1F F0? F0=DC F0?");
    for (const bool ok : {true, false}) {
        EXPECT_EQ(onRa8803.resetController(), ok);
        EXPECT_EQ(onRa8803.setBacklight(false), ok);
        EXPECT_EQ(onRa8803.deinit(), ok);
        EXPECT_EQ(record.take(), "reset BL=0 deinit");
        record.refused = {"reset", "BL=0", "deinit"};
    }
}
