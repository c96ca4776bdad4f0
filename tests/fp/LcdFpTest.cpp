#include "frontpanelhw/fp/LcdFp.h"

#include "tests/support/CapturedOutput.h"
#include "tests/support/FakeLcd.h"
#include "tests/support/FakePins.h"
#include "tests/support/RecordedWaits.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace frontpanelhw;
using drawing::DisplayBuffer;
using drawing::DisplayLine;

namespace {

/** Tells its calls, as "print 0 'ab' - nn - cnt: 2", to the same record as the pins. */
class FakeController : public lcd::LcdControllerBase {
public:
    FakeController(lcd::ILcd& bus, const FakePins& record, std::set<std::string> failingCalls = {})
        : LcdControllerBase(bus), pins(record), failing(std::move(failingCalls))
    {
    }
    ~FakeController() override { pins.tell("gone"); }
    bool clear() override { return happen("clear"); }
    bool init() override { return happen("init"); }
    bool resetController() override { return happen("reset"); }
    bool printLine(unsigned line, const DisplayLine& text) override
    {
        std::ostringstream rendered;
        rendered << "print " << line << " " << text;
        return happen(rendered.str());
    }
    bool enable(bool) override { return happen("enable"); }
    bool setCursor(unsigned, unsigned) override { return happen("cursor"); }
    bool setContrast(unsigned) override { return happen("contrast"); }
    bool swapPage() override { return happen("swap"); }
    bool setBacklight(bool on) override { return happen(on ? "light" : "dark"); }

private:
    bool happen(const std::string& call)
    {
        pins.tell(call);
        return failing.count(call) == 0;
    }
    const FakePins& pins;
    std::set<std::string> failing;
};

/** A display of 2 lines of 3 characters. */
class Panel : public fp::LcdFp {
public:
    explicit Panel(sysfs::ISysfsGpioFactory& factory) : LcdFp(factory, 30, 1, 20, 1, {}, {}) {}
    void connectAnyKeyChangedCb(const std::function<void(unsigned, bool)>& cb) override
    {
        FpBase::connectAnyKeyChangedCb(cb);
    }
    bool setLed(unsigned index, bool on) override { return FpBase::setLed(index, on); }
    void setAllLeds(bool on) override { FpBase::setAllLeds(on); }
    void stop() override { FpBase::stop(); }
    bool isRunning() override { return FpBase::isRunning(); }
    unsigned getChars() const override { return 3; }
    unsigned getLines() const override { return 2; }
    bool enable(bool) override { return false; }
};

class LcdFpTest : public testing::Test {
protected:
    void install(std::set<std::string> failing = {})
    {
        panel.initController(std::make_unique<FakeController>(lcd, pins, std::move(failing)));
        pins.take();
    }
    FakePins pins;
    FakeLcd lcd;
    Panel panel{pins};
};

} // namespace

TEST_F(LcdFpTest, AnswersFalseWithoutAController)
{
    pins.take();
    EXPECT_FALSE(panel.clear() || panel.printLine(0, DisplayLine(3)) || panel.printBuffer(DisplayBuffer(3, 2)) ||
                 panel.resetController() || panel.swapPage() || panel.initController(nullptr));
    panel.fullfillDisplay();
    EXPECT_EQ(pins.take(), "");
}

TEST_F(LcdFpTest, InitialisesTheControllerThatItTakesOver)
{
    pins.take();
    EXPECT_TRUE(panel.initController(std::make_unique<FakeController>(lcd, pins)));
    EXPECT_EQ(pins.take(), "init");
    EXPECT_FALSE(panel.initController(std::make_unique<FakeController>(lcd, pins, std::set<std::string>{"init"})));
    EXPECT_EQ(pins.take(), "gone init");
}

TEST_F(LcdFpTest, PrintsEveryLineThenSwaps)
{
    const std::string line = " 'ab ' - nnn - cnt: 3";
    const std::string all = "print 0" + line + " print 1" + line + " print 2" + line + " print 3" + line + " swap";
    DisplayBuffer buffer(3, 4);
    for (unsigned i = 0; i < 4; ++i) {
        buffer.setLineContent(i, u"ab");
    }
    struct Case {
        std::set<std::string> failing;
        bool result;
    };
    for (const Case& c : {Case{{}, true}, Case{{"print 1" + line}, false}, Case{{"swap"}, false}}) {
        install(c.failing);
        EXPECT_EQ(panel.printBuffer(buffer), c.result);
        EXPECT_EQ(pins.take(), all);
        EXPECT_EQ(panel.printBuffer(DisplayBuffer(3, 0)), c.failing.count("swap") == 0);
        EXPECT_EQ(pins.take(), "swap");
    }
}

TEST_F(LcdFpTest, FillsTheDisplayBeforeTheLampTestFromBothSides)
{
    const std::string display = "print 0 '   ' - iii - cnt: 3 print 1 '   ' - iii - cnt: 3 light swap";
    for (const bool baseSide : {false, true}) {
        install({"print 0 '   ' - iii - cnt: 3", "light", "swap"});
        const CapturedOutput output;
        const RecordedWaits waits([this](const std::string& wait) { pins.tell(wait); });
        EXPECT_TRUE(baseSide ? static_cast<fp::FpBase&>(panel).start(true, 1) : panel.start(true, 1));
        panel.stop();
        EXPECT_EQ(pins.take().rfind(display + " 20=1 1s 20=0 ", 0), 0U);
        EXPECT_TRUE(panel.start(false, 5));
        panel.stop();
        EXPECT_EQ(pins.take().find("print"), std::string::npos);
    }
}

TEST_F(LcdFpTest, DarkensTheDisplayAfterAReset)
{
    install();
    EXPECT_TRUE(panel.resetController());
    EXPECT_EQ(pins.take(), "reset dark");
    install({"dark", "swap", "print 2 'a' - n - cnt: 1"});
    EXPECT_FALSE(panel.swapPage() || panel.printLine(2, DisplayLine(u"a")));
    EXPECT_TRUE(panel.printLine(1, DisplayLine(u"a")) && panel.clear());
    EXPECT_FALSE(panel.resetController());
    install({"reset"});
    EXPECT_FALSE(panel.resetController());
    EXPECT_EQ(pins.take(), "reset");
}
