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

const std::string common = "v 11 20 FF, v 20 18 FF, v 21 1D FF, v 30 2F FF, v 31 2F FF, v 80 64 FF, v E0 00 FF";
const std::string ra8803Set =
    "v 00 C9 FF, v 01 B6 FF, v 02 00 FF, v 03 80 FF, v 10 6B FF, v 12 A1 FF, " + common +
    ", v 40 00 FF, v 50 00 FF, v 41 00 FF, v 51 00 FF, v 60 00 FF, v 61 00 FF, v 70 00 FF, v 71 00 FF, v 72 C7 FF, "
    "v 81 00 FF, v 91 00 FF, v 90 1F FF, v A0 00 0F, v A1 00 FF, v A2 00 FF, v A3 00 FF, v B0 18 FF, v B1 2F FF, "
    "v C0 00 30, v C1 08 0C, v D0 0C FF, v F0 D4 FF, v F1 0F FF";
const std::string ra8806Set = "v 00 08 FF, v 01 04 FF, v 10 42 FF, " + common + ", v F0 04 FF";

DisplayLine marked(const std::u16string& text, unsigned from, unsigned to)
{
    DisplayLine line(text);
    line.setInverted(from, to, true);
    return line;
}

std::unique_ptr<Ra8822LcdController> controllerOn(FakeLcd& lcd)
{
    return std::make_unique<Ra8822LcdController>(lcd, std::make_unique<Ra8806RegistersController>(lcd));
}

} // namespace

TEST(RegisterProfiles, WriteTheirWholeStartUpSet)
{
    FakeLcd lcd;
    Ra8803RegistersController ra8803(lcd);
    Ra8806RegistersController ra8806(lcd);
    EXPECT_EQ(lcd.take(), "");
    EXPECT_TRUE(ra8803.initializeRegisterSettings());
    EXPECT_EQ(lcd.take(), ra8803Set);
    EXPECT_TRUE(ra8806.initializeRegisterSettings());
    EXPECT_EQ(lcd.take(), ra8806Set);

    for (const char* failing : {"v 01 B6 FF", "v 01 04 FF", "v 80 64 FF", "v F1 0F FF", "v F0 04 FF"}) {
        lcd.failing = {failing};
        EXPECT_EQ(ra8803.initializeRegisterSettings(), ra8803Set.find(failing) == std::string::npos) << failing;
        EXPECT_EQ(lcd.take(), ra8803Set);
        EXPECT_EQ(ra8806.initializeRegisterSettings(), ra8806Set.find(failing) == std::string::npos) << failing;
        EXPECT_EQ(lcd.take(), ra8806Set);
    }
}

TEST(RegisterProfiles, SwitchDisplayAndContrast)
{
    FakeLcd lcd;
    Ra8803RegistersController ra8803(lcd);
    Ra8806RegistersController ra8806(lcd);
    EXPECT_TRUE(ra8803.enable(true) && ra8803.enable(false) && ra8806.enable(true) && ra8806.enable(false));
    EXPECT_EQ(lcd.take(), "w 00 CD, w 00 C9, w 00 0C, w 00 08");
    for (const unsigned percent : {0U, 50U, 99U, 100U, 0xFFFFFFFFU}) {
        EXPECT_TRUE(ra8803.setContrast(percent));
        EXPECT_TRUE(ra8806.setContrast(percent));
    }
    EXPECT_EQ(lcd.take(), "w D0 00, w D0 0F, w D0 1E, w D0 1F, w D0 28") << "the last wraps around at 32 bits";
    lcd.failing = {"w 00 CD", "w D0 0F"};
    EXPECT_FALSE(ra8803.enable(true));
    EXPECT_FALSE(ra8803.setContrast(50));
}

TEST(RegisterProfiles, InvertOnlyOnChange)
{
    FakeLcd lcd;
    Ra8803RegistersController ra8803(lcd);
    Ra8806RegistersController ra8806(lcd);
    struct Case {
        IRaController& profile;
        unsigned char normal;
        const char* inverted;
        const char* back;
    };
    for (const Case& c :
         {Case{ra8803, 0x6B, "r 10, w 10 4B", "r 10, w 10 6B"}, Case{ra8806, 0x42, "r 10, w 10 62", "r 10, w 10 42"}}) {
        lcd.registers[0x10] = c.normal;
        lcd.failing.clear();
        EXPECT_TRUE(c.profile.setInverted(false));
        EXPECT_EQ(lcd.take(), "");
        lcd.initialized = false;
        EXPECT_FALSE(c.profile.setInverted(true));
        EXPECT_EQ(lcd.take(), "");
        lcd.initialized = true;
        lcd.failing = {"r 10"};
        EXPECT_FALSE(c.profile.setInverted(true));
        EXPECT_EQ(lcd.take(), "r 10");
        lcd.failing.clear();
        EXPECT_TRUE(c.profile.setInverted(true));
        EXPECT_EQ(lcd.take(), c.inverted);
        EXPECT_TRUE(c.profile.setInverted(true));
        EXPECT_EQ(lcd.take(), "");
        lcd.failing = {std::string(c.back).substr(6)};
        EXPECT_FALSE(c.profile.setInverted(false));
        EXPECT_FALSE(c.profile.setInverted(false)) << "tries again";
        EXPECT_EQ(lcd.take(), std::string(c.back) + ", " + c.back);
    }
}

TEST(TextController, PreparesTheDisplayWhateverFails)
{
    const std::string all = ra8803Set + ", r F0, w F0 DC, w 12 92, r F0, w F0 DC, w 00 CD, w D0 0F, backlight 1, s";
    for (const char* failing : {"", "s", "v 01 B6 FF", "w 12 92", "w F0 DC", "w 00 CD", "w D0 0F", "backlight 1"}) {
        const std::string name(failing);
        FakeLcd lcd;
        lcd.status = 0x0A;
        lcd.failing = {name};
        const CapturedOutput output;
        EXPECT_EQ(Ra8822LcdController(lcd, std::make_unique<Ra8803RegistersController>(lcd)).init(),
                  name.empty() || name == "s")
            << name;
        EXPECT_EQ(lcd.take(), all);
        std::cout << 16;
        EXPECT_EQ(output.out(), std::string("INFO: status register: ") + (name == "s" ? "0" : "1") + " 0xa\n10");
    }
}

TEST(TextController, RefusesAnUninitialisedBus)
{
    FakeLcd lcd;
    lcd.initialized = false;
    const auto controller = controllerOn(lcd);
    const CapturedOutput output;
    EXPECT_FALSE(controller->clear() || controller->enable(true) || controller->setCursor(0, 0) ||
                 controller->setContrast(1) || controller->swapPage() || controller->printLine(0, DisplayLine(1)) ||
                 controller->isInitialized());
    EXPECT_EQ(lcd.take(), "");
    EXPECT_FALSE(controller->init());
    EXPECT_EQ(output.out(), "INFO: status register: 0 0x0\n");
    EXPECT_EQ(lcd.take(), ra8806Set + ", backlight 1") << "every step runs";
    lcd.initialized = true;
    EXPECT_TRUE(controller->swapPage());
    EXPECT_EQ(lcd.take(), "w 12 92") << "refused swaps changed nothing";
}

TEST(TextController, MovesTheCursorOnlyWhereItDoesNotStand)
{
    FakeLcd lcd;
    const auto controller = controllerOn(lcd);
    struct Step {
        unsigned column, line;
        bool result;
        const char* accesses;
    };
    lcd.failing = {"w 60 07", "w 70 30"};
    for (const Step& s : {Step{0, 1, true, "w 60 00, w 70 10"}, Step{0, 1, true, ""}, Step{5, 1, true, "w 60 05"},
                          Step{5, 2, true, "w 70 20"}, Step{7, 4, false, "w 60 07"}, Step{7, 3, false, "w 70 30"},
                          Step{7, 3, true, ""}, Step{256 + 9, 16, true, "w 60 09, w 70 00"}}) {
        EXPECT_EQ(controller->setCursor(s.column, s.line), s.result) << s.column << "," << s.line;
        EXPECT_EQ(lcd.take(), s.accesses);
    }
}

TEST(TextController, PrintsCellByCell)
{
    FakeLcd lcd;
    const auto controller = controllerOn(lcd);
    lcd.registers[0x10] = 0x42;
    EXPECT_TRUE(controller->printLine(1, marked(u"A\u0141c", 1, 1)));
    EXPECT_EQ(lcd.take(), "w 60 00, w 70 10, d 41, r 10, w 10 62, d 41, r 10, w 10 42, d 63");
    EXPECT_TRUE(controller->printLine(1, DisplayLine(27)));
    const std::string taken = lcd.take();
    EXPECT_EQ(std::count(taken.begin(), taken.end(), 'd'), 27) << "nothing is clipped";
    EXPECT_TRUE(controller->printLine(1, DisplayLine()));
    EXPECT_EQ(lcd.take(), "w 60 00");
    EXPECT_TRUE(controller->setCursor(0, 1));
    EXPECT_EQ(lcd.take(), "");

    lcd.failing = {"d 62"};
    EXPECT_FALSE(controller->printLine(1, DisplayLine(u"abc")));
    EXPECT_EQ(lcd.take(), "d 61, d 62");
    EXPECT_TRUE(controller->setCursor(1, 1));
    EXPECT_EQ(lcd.take(), "") << "the cell that failed did not move the cursor";
    lcd.failing = {"r 10"};
    EXPECT_FALSE(controller->printLine(2, marked(u"abc", 1, 1)));
    EXPECT_EQ(lcd.take(), "w 60 00, w 70 20, d 61, r 10");
    lcd.failing = {"w 60 00"};
    EXPECT_FALSE(controller->printLine(2, DisplayLine(u"abc")));
    EXPECT_EQ(lcd.take(), "w 60 00");
}

TEST(TextController, SwapsClearsAndChecksTheContrast)
{
    FakeLcd lcd;
    Ra8822LcdController controller(lcd, std::make_unique<Ra8803RegistersController>(lcd));
    lcd.failing = {"w 12 A1"};
    EXPECT_TRUE(controller.swapPage());
    EXPECT_FALSE(controller.swapPage());
    EXPECT_TRUE(controller.swapPage()) << "pages change also when the write fails";
    EXPECT_EQ(lcd.take(), "w 12 92, w 12 A1, w 12 92");
    EXPECT_TRUE(controller.setContrast(100));
    EXPECT_FALSE(controller.setContrast(101) || controller.setContrast(300));
    EXPECT_EQ(lcd.take(), "w D0 1F");
    lcd.registers[0xF0] = 0xD4;
    EXPECT_TRUE(controller.clear());
    EXPECT_EQ(lcd.take(), "r F0, w F0 DC");
    lcd.failing = {"r F0"};
    EXPECT_FALSE(controller.clear());
    EXPECT_EQ(lcd.take(), "r F0");
    for (const bool answer : {true, false}) {
        EXPECT_EQ(controller.resetController(), answer);
        EXPECT_EQ(controller.setBacklight(false), answer);
        EXPECT_EQ(controller.deinit(), answer);
        EXPECT_EQ(lcd.take(), "reset, backlight 0, deinit");
        lcd.failing = {"reset", "backlight 0", "deinit"};
    }
}
