#include "frontpanelhw/lcd/Ra8803RegistersController.h"
#include "frontpanelhw/lcd/Ra8806RegistersController.h"
#include "frontpanelhw/lcd/Ra8822LcdController.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FakeLcd.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

using namespace frontpanelhw::lcd;
using frontpanelhw::drawing::DisplayLine;

const std::string common = "11=20/FF 20=18/FF 21=1D/FF 30=2F/FF 31=2F/FF 80=64/FF E0=00/FF ";
const std::string ra8803Set =
    "00=C9/FF 01=B6/FF 02=00/FF 03=80/FF 10=6B/FF 12=A1/FF " + common +
    "40=00/FF 50=00/FF 41=00/FF 51=00/FF 60=00/FF 61=00/FF 70=00/FF 71=00/FF 72=C7/FF 81=00/FF 91=00/FF 90=1F/FF "
    "A0=00/0F A1=00/FF A2=00/FF A3=00/FF B0=18/FF B1=2F/FF C0=00/30 C1=08/0C D0=0C/FF F0=D4/FF F1=0F/FF";
const std::string ra8806Set = "00=08/FF 01=04/FF 10=42/FF " + common + "F0=04/FF";

struct ControllersTest : testing::Test {
    Record record;
    FakeLcd lcd{record};
};

TEST_F(ControllersTest, ProfilesWriteTheirRegistersEvenIfSomeFail)
{
    Ra8803RegistersController ra8803(lcd);
    Ra8806RegistersController ra8806(lcd);
    const struct {
        IRaController& profile;
        std::string startUp, on, off, contrast, normal, inverted;
    } chips[] = {{ra8803, ra8803Set, "00=CD", "00=C9", "D0=00 D0=0F D0=1E D0=1F D0=28", "10=6B", "10=4B"},
                 {ra8806, ra8806Set, "00=0C", "00=08", "", "10=42", "10=62"}};
    for (const auto& chip : chips) {
        IRaController& profile = chip.profile;
        std::istringstream writes(chip.startUp + " none");
        for (std::string refused; writes >> refused;) {
            record.refused = {refused};
            EXPECT_EQ(profile.initializeRegisterSettings(), refused == "none") << refused;
            EXPECT_EQ(record.take(), chip.startUp);
        }
        record.refused = {chip.off, "D0=28"};
        EXPECT_TRUE(profile.enable(true) && !profile.enable(false));
        EXPECT_EQ(record.take(), chip.on + " " + chip.off);
        EXPECT_TRUE(profile.setContrast(0) && profile.setContrast(50) && profile.setContrast(99) &&
                    profile.setContrast(100));
        EXPECT_EQ(profile.setContrast(0xFFFFFFFF), chip.contrast.empty());
        EXPECT_EQ(record.take(), chip.contrast) << "the last one wraps around";

        EXPECT_TRUE(profile.setInverted(false));
        lcd.initialized = false;
        EXPECT_FALSE(profile.setInverted(true));
        lcd.initialized = true;
        record.refused = {"10?"};
        EXPECT_FALSE(profile.setInverted(true));
        record.refused = {chip.normal};
        EXPECT_TRUE(profile.setInverted(true) && profile.setInverted(true));
        EXPECT_FALSE(profile.setInverted(false) || profile.setInverted(false)) << "tries again";
        EXPECT_EQ(record.take(), "10? 10? " + chip.inverted + " 10? " + chip.normal + " 10? " + chip.normal);
    }
}

TEST_F(ControllersTest, PrepareTheDisplayEvenIfAStepFailsAndWriteOnlyWhatChanges)
{
    CapturedOutput log;
    for (const std::string failing : {"", "12=92"}) {
        record.refused = {failing};
        Ra8822LcdController text(lcd, std::make_unique<Ra8803RegistersController>(lcd));
        EXPECT_EQ(text.init(), failing.empty());
        EXPECT_EQ(record.take(), ra8803Set + " F0? F0=DC 12=92 F0? F0=DC 00=CD D0=0F BL=1 status");
        EXPECT_EQ(log.take(), "INFO: status register: 1 0xa\n");
    }
    lcd.initialized = false;
    Ra8822LcdController text(lcd, std::make_unique<Ra8803RegistersController>(lcd));
    EXPECT_FALSE(text.init() || text.setCursor(0, 1) || text.swapPage() || text.clear() || text.setContrast(0));
    EXPECT_EQ(record.take() + log.take(), ra8803Set + " BL=1INFO: status register: 0 0x0\n");
    lcd.initialized = true;
    lcd.registers[0x10] = 0x6B;
    DisplayLine line(u"A\u0141c");
    line.setInverted(1, 1, true);
    record.refused = {"60=07", "d62"};
    EXPECT_TRUE(text.setCursor(0, 1) && text.setCursor(0, 1) && text.setCursor(256 + 9, 16));
    EXPECT_TRUE(!text.setCursor(7, 0) && text.setCursor(9, 0) && text.printLine(1, line) && text.setCursor(3, 1));
    EXPECT_FALSE(text.printLine(1, DisplayLine(u"abc")) || text.setContrast(101));
    EXPECT_TRUE(text.swapPage() && text.swapPage() && text.setContrast(100) && text.resetController() && text.deinit());
    EXPECT_EQ(record.take(), "60=00 70=10 60=09 70=00 60=07 60=09 70=00 60=00 70=10 d41 10? 10=4B d41 10? 10=6B d63 "
                             "60=00 d61 d62 12=92 12=A1 D0=1F reset deinit");
}
