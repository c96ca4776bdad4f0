#include "frontpanelhw/lcd/LcdRa8822.h"

#include "frontpanelhw/lcd/LcdConfig.h"
#include "frontpanelhw/lcd/LcdRa8822GpioCreator.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FakePins.h"
#include "tests/support/RecordedWaits.h"

#include <gtest/gtest.h>

using namespace frontpanelhw::lcd;

namespace {

const std::string resetWaveform =
    "data->out data=FF RS=1 CS=0 RD=0 WR=0 RST=0 CS=1 1ms RST=1 300ms RST=0 1ms CS=0 60ms";
/** Register 0 read as an RA8803: what identifies the chip. */
const std::string idWaveform = "data=00 RS=0 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us "
                               "data->in RS=0 CS=1 RD=1 10us data? RD=0 CS=0 1us";

/** A driver on fake pins: data lines on GPIO 0 to 7, then the others of the timing diagram. */
class Bus {
public:
    explicit Bus(bool backlightInverted = false) : lcd(*record, backlightInverted) {}

    /** Brings the driver up with the chip that answers this byte. */
    void bringUp(unsigned char id)
    {
        const CapturedOutput output;
        answer(id);
        ASSERT_TRUE(lcd.init());
        pins.take();
    }
    void answer(unsigned char byte)
    {
        for (unsigned i = 0; i < 8; ++i) {
            pins.setLevel(i, (byte >> i & 1U) != 0);
        }
    }

    FakePins pins;
    RecordedWaits waits{[this](const std::string& wait) { pins.tell(wait); }};
    std::unique_ptr<LcdRa8822Gpios> record = exported();
    LcdRa8822 lcd;

private:
    std::unique_ptr<LcdRa8822Gpios> exported()
    {
        auto gpios = LcdRa8822GpioCreator(pins).create();
        unsigned number = 0;
        for (auto& gpio : gpios->dataGpios) {
            gpio->exportGpio(number++);
        }
        for (auto* gpio : {&gpios->registerSelectGpio, &gpios->chipSelectGpio, &gpios->readStrobeGpio,
                           &gpios->writeStrobeGpio, &gpios->resetGpio, &gpios->backlightGpio}) {
            (*gpio)->exportGpio(number++);
        }
        pins.take();
        return gpios;
    }
};

constexpr unsigned char ra8803Id = 0xC9;

} // namespace

TEST(LcdRa8822Gpios, AreMadeInOrderAndDeletedInReverse)
{
    FakePins pins;
    {
        const auto gpios = LcdRa8822GpioCreator(pins).create();
        EXPECT_EQ(pins.take(), "create create create create create create create create create create create create "
                               "create create");
        gpios->dataGpios[0]->exportGpio(1);
        gpios->dataGpios[7]->exportGpio(2);
        gpios->registerSelectGpio->exportGpio(3);
        gpios->backlightGpio->exportGpio(4);
        pins.take();
    }
    EXPECT_EQ(pins.take(), "delete 4 delete 0 delete 0 delete 0 delete 0 delete 3 "
                           "delete 2 delete 0 delete 0 delete 0 delete 0 delete 0 delete 0 delete 1");
}

TEST(LcdRa8822Gpios, AreAllConfiguredWhateverOneAnswers)
{
    const std::string common = "init 0 out 0 init 1 out 0 init 2 out 0 init 3 out 0 init 4 out 0 init 5 out 0 "
                               "init 6 out 0 init 7 out 0 init 8 out 0 init 9 inverted out 0 init 10 inverted out 0 "
                               "init 11 inverted out 0 init 12 inverted out 0 ";
    for (const bool inverted : {false, true}) {
        Bus bus;
        EXPECT_TRUE(initGpios(*bus.record, inverted));
        EXPECT_EQ(bus.pins.take(), common + (inverted ? "init 13 inverted out 0" : "init 13 out 0"));
    }
    for (unsigned gpio = 0; gpio < 14; ++gpio) {
        Bus bus;
        bus.pins.refuse("init " + std::to_string(gpio) + (gpio >= 9 && gpio < 13 ? " inverted out 0" : " out 0"));
        EXPECT_FALSE(initGpios(*bus.record, false)) << gpio;
        EXPECT_EQ(bus.pins.take(), common + "init 13 out 0");
    }
}

TEST(LcdConfig, IsFixed)
{
    const LcdConfig c = getConfig();
    EXPECT_EQ((std::array<unsigned, 10>{c.textAreaWidth, c.textAreaHeight, c.displayWidth, c.displayHeight, c.reg00Bit0,
                                        c.reg00Bit1, c.reg80Value, c.reg00Bit3, c.regF0Bit2, c.reg01Bits}),
              (std::array<unsigned, 10>{200, 48, 240, 48, 0, 0, 100, 1, 1, 3}));
}

TEST(LcdRa8822, ResetsAndIdentifiesTheChip)
{
    struct Case {
        unsigned char id;
        unsigned type;
        const char* line;
    };
    for (const Case& c : {Case{ra8803Id, 0, "INFO: LcdControl c9\n"}, Case{0x00, 1, "INFO: LcdControl 0\n"},
                          Case{0x0F, 1, "INFO: LcdControl f\n"}}) {
        Bus bus;
        bus.answer(c.id);
        const CapturedOutput output;
        EXPECT_TRUE(bus.lcd.init());
        const std::string waveform = bus.pins.takeWaveform();
        EXPECT_EQ(waveform.substr(waveform.find("data->out")), resetWaveform + " " + idWaveform);
        EXPECT_EQ(bus.lcd.lcdType(), c.type);
        EXPECT_TRUE(bus.lcd.isInitialized());
        EXPECT_EQ(output.out(), c.line);
        std::cout << 255;
        EXPECT_EQ(output.out(), std::string(c.line) + "ff");
    }
}

TEST(LcdRa8822, ProducesTheBusCyclesOfBothVariants)
{
    struct Case {
        const char* what;
        std::function<bool(LcdRa8822&)> operation;
        const char* ra8803;
        const char* ra8806;
    };
    unsigned char read = 0;
    const Case cases[] = {
        {"first write after a read", [](LcdRa8822& lcd) { return lcd.writeCmd(0x12, 0xA1); },
         "data->out data=12 RS=0 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us data=A1 RS=0 CS=1 WR=1 10us WR=0 CS=0 1us",
         "data->out data=12 RS=1 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us data=A1 RS=0 CS=1 WR=1 10us WR=0 CS=0 1us"},
        {"register write", [](LcdRa8822& lcd) { return lcd.writeCmd(0xFE, 0x01); },
         "data=FE RS=0 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us data=01 RS=0 CS=1 WR=1 10us WR=0 CS=0 1us",
         "data=FE RS=1 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us data=01 RS=0 CS=1 WR=1 10us WR=0 CS=0 1us"},
        {"display data", [](LcdRa8822& lcd) { return lcd.writeData(0x41); },
         "data=41 RS=1 CS=1 RD=0 WR=1 10us WR=0 CS=0",
         "data=B0 RS=1 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us data=41 RS=0 CS=1 RD=0 WR=1 10us WR=0 CS=0"},
        {"register read", [&](LcdRa8822& lcd) { return lcd.readCmd(0x10, read); },
         "data=10 RS=0 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us data->in RS=0 CS=1 RD=1 10us data? RD=0 CS=0 1us",
         "data=10 RS=1 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us data->in RS=0 CS=1 RD=1 10us data? RD=0 CS=0 1us"},
        {"status read, with the lines already inputs", [&](LcdRa8822& lcd) { return lcd.readStatus(read); },
         "data->in RS=1 CS=1 RD=1 WR=0 10us data? RD=0 CS=0", "data->in RS=1 CS=1 RD=1 WR=0 10us data? RD=0 CS=0"},
        {"display data after a read", [](LcdRa8822& lcd) { return lcd.writeData(0x80); },
         "data->out data=80 RS=1 CS=1 RD=0 WR=1 10us WR=0 CS=0",
         "data->out data=B0 RS=1 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us data=80 RS=0 CS=1 RD=0 WR=1 10us WR=0 CS=0"},
        {"backlight", [](LcdRa8822& lcd) { return lcd.setBacklight(true); }, "BL=1", "BL=1"},
        {"reset", [](LcdRa8822& lcd) { return lcd.resetController(); }, resetWaveform.c_str(), resetWaveform.c_str()},
    };
    for (const unsigned char id : {ra8803Id, static_cast<unsigned char>(0)}) {
        Bus bus;
        bus.bringUp(id);
        bus.answer(0x8B);
        for (const Case& c : cases) {
            read = 0;
            EXPECT_TRUE(c.operation(bus.lcd)) << c.what;
            const std::string waveform = bus.pins.takeWaveform();
            EXPECT_EQ(waveform, id == ra8803Id ? c.ra8803 : c.ra8806) << c.what;
            EXPECT_EQ(read, waveform.find("data?") == std::string::npos ? 0 : 0x8B) << c.what;
        }
    }
}

TEST(LcdRa8822, RefusesAccessWhileNotInitialised)
{
    Bus bus;
    unsigned char byte = 7;
    const auto refusesAll = [&] {
        return !bus.lcd.setBacklight(true) && !bus.lcd.writeCmd(1, 2) && !bus.lcd.readCmd(1, byte) &&
               !bus.lcd.readStatus(byte) && !bus.lcd.writeCmdAndVerify(1, 2, 0) && !bus.lcd.writeData(3) &&
               bus.lcd.getData() == 0 && byte == 7 && !bus.lcd.isInitialized();
    };
    EXPECT_TRUE(refusesAll());
    EXPECT_EQ(bus.pins.take(), "");
    EXPECT_TRUE(bus.lcd.resetController());
    EXPECT_EQ(bus.pins.takeWaveform(), resetWaveform);
    bus.bringUp(ra8803Id);
    EXPECT_TRUE(bus.lcd.deinit());
    EXPECT_TRUE(refusesAll());
    EXPECT_EQ(bus.pins.take(), "");
}

TEST(LcdRa8822, ChecksTheBitsOfTheMask)
{
    struct Case {
        unsigned char value, readBack, mask;
        const char* warning;
    };
    for (const Case& c : {Case{0x6B, 0x4B, 0xFF, "WARNING: value '107' written to register 16 read back as '75'\n"},
                          Case{0x6B, 0x6B, 0xFF, ""}, Case{0x55, 0xAA, 0x00, ""}, Case{0x6B, 0x1B, 0x0F, ""},
                          Case{0x6C, 0x1B, 0x0F, "WARNING: value '12' written to register 16 read back as '11'\n"}}) {
        Bus bus;
        bus.bringUp(ra8803Id);
        bus.answer(c.readBack);
        const CapturedOutput output;
        std::cout << std::hex;
        EXPECT_EQ(bus.lcd.writeCmdAndVerify(0x10, c.value, c.mask), *c.warning == '\0');
        EXPECT_EQ(output.out(), c.warning);
    }
}

TEST(LcdRa8822, ReportsAPinThatFails)
{
    struct Case {
        const char* broken;
        std::function<bool(LcdRa8822&)> operation;
        const char* line;
    };
    unsigned char byte = 0;
    const Case cases[] = {
        {"13=1", [](LcdRa8822& lcd) { return lcd.setBacklight(true); },
         "ERROR: unable to set lcd backlight gpio value; broken\n"},
        {"12=1", [](LcdRa8822& lcd) { return lcd.resetController(); },
         "ERROR: unable to reset lcd controller; broken\n"},
        {"11=1", [](LcdRa8822& lcd) { return lcd.writeData(1); },
         "ERROR: unable to write lcd controller data; broken\n"},
        {"in 3", [&](LcdRa8822& lcd) { return lcd.readStatus(byte); },
         "ERROR: unable to read lcd controller status broken\n"},
        {"9=1", [](LcdRa8822& lcd) { return lcd.writeCmd(0x12, 0xA1); },
         "ERROR: unable to write lcd controller command '161' to register '18'; broken\n"},
        {"5?", [&](LcdRa8822& lcd) { return lcd.readCmd(0x12, byte); },
         "ERROR: unable to read lcd controller register '18'; broken\n"},
        {"9=1", [](LcdRa8822& lcd) { return lcd.writeCmdAndVerify(0x12, 0xA1, 0xFF); },
         "ERROR: unable to write lcd controller command '161' to register '18'; broken\n"
         "ERROR: unable to read lcd controller register '18'; broken\n"},
        {"5=1", [](LcdRa8822& lcd) { return lcd.writeCmdAndVerify(0x01, 0x20, 0); },
         "ERROR: unable to write lcd controller command '32' to register '1'; broken\n"},
        {"5?", [](LcdRa8822& lcd) { return lcd.writeCmdAndVerify(0x12, 0xA1, 0xFF); },
         "ERROR: unable to read lcd controller register '18'; broken\n"},
    };
    for (const Case& c : cases) {
        Bus bus;
        bus.bringUp(ra8803Id);
        bus.pins.breakOn(c.broken);
        const CapturedOutput output;
        EXPECT_FALSE(c.operation(bus.lcd)) << c.line;
        EXPECT_EQ(output.err(), c.line);
        EXPECT_EQ(output.out(), "");
        EXPECT_TRUE(bus.lcd.isInitialized());
    }
}

TEST(LcdRa8822, StopsWhereAPinFails)
{
    Bus bus;
    bus.bringUp(ra8803Id);
    bus.pins.breakOn("out 1");
    const CapturedOutput output;
    EXPECT_FALSE(bus.lcd.writeCmd(0x12, 0xA1));
    EXPECT_EQ(bus.pins.take(), "out 0 out 1");
    EXPECT_FALSE(bus.lcd.writeCmd(0x12, 0xA1)) << "the direction is still taken for input";
    EXPECT_EQ(bus.pins.take(), "out 0 out 1");
}

TEST(LcdRa8822, TakesOnlyTheBacklightsAnswer)
{
    Bus bus;
    bus.bringUp(ra8803Id);
    for (const char* refused : {"9=1", "11=1", "0=1", "13=1"}) {
        bus.pins.refuse(refused);
    }
    const CapturedOutput output;
    EXPECT_TRUE(bus.lcd.writeCmd(1, 1));
    EXPECT_FALSE(bus.lcd.setBacklight(true));
    EXPECT_EQ(output.err(), "");
}

TEST(LcdRa8822, DoesNotComeUpWithoutItsPins)
{
    struct Case {
        std::function<void(FakePins&)> harm;
        const char* line;
    };
    for (const Case& c :
         {Case{[](FakePins& pins) { pins.refuse("init 13 out 0"); },
               "ERROR: failed to initialize one or more gpio(s)\n"},
          Case{[](FakePins& pins) { pins.breakOn("12=1"); }, "ERROR: unable to reset lcd controller; broken\n"
                                                             "ERROR: error while resetting lcd controller\n"}}) {
        Bus bus;
        c.harm(bus.pins);
        const CapturedOutput output;
        EXPECT_FALSE(bus.lcd.init());
        EXPECT_FALSE(bus.lcd.isInitialized());
        EXPECT_EQ(output.err(), c.line);
        EXPECT_EQ(output.out(), "");
    }
    Bus bus;
    bus.pins.breakOn("init 3 out 0");
    EXPECT_THROW(bus.lcd.init(), Broken);
    EXPECT_FALSE(bus.lcd.isInitialized());
}

TEST(LcdRa8822, TakesAFailedIdentificationForAnRa8806)
{
    Bus bus;
    bus.answer(ra8803Id);
    bus.pins.breakOn("7?");
    const CapturedOutput output;
    EXPECT_TRUE(bus.lcd.init());
    EXPECT_EQ(bus.lcd.lcdType(), 1U);
    EXPECT_EQ(output.out(), "INFO: LcdControl 0\n");
    bus.answer(ra8803Id);
    EXPECT_TRUE(bus.lcd.init());
    EXPECT_EQ(bus.lcd.lcdType(), 1U) << "a variant once found is kept";
}

TEST(LcdRa8822, GoesOnWithAnInterruptedWait)
{
    Bus bus;
    bus.bringUp(ra8803Id);
    bus.waits.interruptNext();
    EXPECT_TRUE(bus.lcd.writeData(0));
    EXPECT_EQ(bus.pins.takeWaveform(), "data->out data=00 RS=1 CS=1 RD=0 WR=1 10us 5us WR=0 CS=0");
}
