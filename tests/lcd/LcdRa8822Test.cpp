#include "frontpanelhw/lcd/LcdRa8822.h"

#include "frontpanelhw/lcd/LcdRa8822GpioCreator.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FakePins.h"
#include "tests/support/VirtualTime.h"

#include <gtest/gtest.h>

using namespace frontpanelhw::lcd;

namespace {

constexpr unsigned char ra8803Id = 0xC9;

const std::string resetWaveform =
    "data->out data=FF RS=1 CS=0 RD=0 WR=0 RST=0 CS=1 1ms RST=1 300ms RST=0 1ms CS=0 60ms";
/** Register 0 read as an RA8803, up to the byte that identifies the chip. */
const std::string idWaveform = "data=00 RS=0 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us data->in RS=0 CS=1 RD=1 10us data?";

/** A driver on fake pins, in the order of the timing diagram. */
struct Bus {
    Bus() { pins.take(); }
    /** Initialises the driver with a chip that identifies itself by this byte. */
    explicit Bus(unsigned char id)
    {
        respond(id);
        EXPECT_TRUE(lcd.init());
        pins.take();
        log.take();
    }
    void respond(unsigned char byte)
    {
        for (unsigned i = 0; i < 8; ++i) {
            pins.levels.at(i) = (byte >> i & 1U) != 0;
        }
    }

    FakePins pins;
    CapturedOutput log;
    VirtualTime time{VirtualTime::Others::Sleep, [this](const std::string& sleep) { return pins.happen(sleep); }};
    std::unique_ptr<LcdRa8822Gpios> gpios = LcdRa8822GpioCreator(pins).create();
    LcdRa8822 lcd{*gpios, false};
};

} // namespace

TEST(LcdRa8822Gpios, AreAllConfiguredEvenIfOneRefuses)
{
    for (unsigned refused = 0; refused <= 14; ++refused) {
        FakePins pins;
        const std::string number = std::to_string(refused);
        pins.refused = {"init " + number + " out 0", "init " + number + " inverted out 0"};
        const auto gpios = LcdRa8822GpioCreator(pins).create();
        pins.take();
        EXPECT_EQ(initGpios(*gpios, false), refused == 14) << refused;
        EXPECT_EQ(pins.take(), "init 0 out 0 init 1 out 0 init 2 out 0 init 3 out 0 init 4 out 0 init 5 out 0 "
                               "init 6 out 0 init 7 out 0 init 8 out 0 init 9 inverted out 0 init 10 inverted out 0 "
                               "init 11 inverted out 0 init 12 inverted out 0 init 13 out 0");
    }
}

TEST(LcdRa8822, ResetsAndIdentifiesTheChip)
{
    struct Case {
        unsigned char id;
        std::set<std::string> broken;
        unsigned type;
        const char* end;
        const char* line;
    };
    for (const Case& c : {Case{ra8803Id, {}, 0, " RD=0 CS=0 1us", "INFO: LcdControl c9\nff"},
                          Case{0x0F, {}, 1, " RD=0 CS=0 1us", "INFO: LcdControl f\nff"},
                          Case{ra8803Id,
                               {"7?"},
                               1,
                               "",
                               "! ERROR: unable to read lcd controller register '0'; broken\n"
                               "INFO: LcdControl 0\nff"}}) {
        Bus bus;
        bus.respond(c.id);
        bus.pins.broken = c.broken;
        EXPECT_TRUE(bus.lcd.init() && bus.lcd.isInitialized());
        const std::string waveform = bus.pins.takeWaveform();
        EXPECT_EQ(waveform.substr(waveform.find("data->out")), resetWaveform + " " + idWaveform + c.end);
        EXPECT_EQ(bus.lcd.lcdType(), c.type);
        std::cout << 255;
        EXPECT_EQ(bus.log.take(), c.line);
        bus.pins.broken.clear();
        bus.respond(ra8803Id);
        EXPECT_TRUE(bus.lcd.init());
        EXPECT_EQ(bus.lcd.lcdType(), c.type) << "a variant once found is kept";
    }
}

TEST(LcdRa8822, ProducesTheBusCyclesOfBothVariants)
{
    const std::string statusRead = "data->in RS=1 CS=1 RD=1 WR=0 10us data? RD=0 CS=0 ";
    const std::string ra8803 =
        "data->out data=12 RS=0 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us data=A1 RS=0 CS=1 WR=1 10us WR=0 CS=0 1us "
        "data=FE RS=0 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us data=01 RS=0 CS=1 WR=1 10us WR=0 CS=0 1us "
        "data=41 RS=1 CS=1 RD=0 WR=1 10us WR=0 CS=0 "
        "data=10 RS=0 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us data->in RS=0 CS=1 RD=1 10us data? RD=0 CS=0 1us " +
        statusRead + "data->out data=80 RS=1 CS=1 RD=0 WR=1 10us WR=0 CS=0 ";
    const std::string ra8806 =
        "data->out data=12 RS=1 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us data=A1 RS=0 CS=1 WR=1 10us WR=0 CS=0 1us "
        "data=FE RS=1 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us data=01 RS=0 CS=1 WR=1 10us WR=0 CS=0 1us "
        "data=B0 RS=1 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us data=41 RS=0 CS=1 RD=0 WR=1 10us WR=0 CS=0 "
        "data=10 RS=1 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us data->in RS=0 CS=1 RD=1 10us data? RD=0 CS=0 1us " +
        statusRead +
        "data->out data=B0 RS=1 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us data=80 RS=0 CS=1 RD=0 WR=1 10us WR=0 CS=0 ";
    for (const bool isRa8803 : {true, false}) {
        Bus bus(isRa8803 ? ra8803Id : 0);
        bus.respond(0x8B);
        unsigned char value = 0;
        unsigned char status = 0;
        EXPECT_TRUE(bus.lcd.writeCmd(0x12, 0xA1) && bus.lcd.writeCmd(0xFE, 0x01) && bus.lcd.writeData(0x41));
        EXPECT_TRUE(bus.lcd.readCmd(0x10, value) && bus.lcd.readStatus(status) && bus.lcd.writeData(0x80));
        EXPECT_TRUE(bus.lcd.setBacklight(true) && bus.lcd.resetController());
        EXPECT_EQ(bus.pins.takeWaveform(), (isRa8803 ? ra8803 : ra8806) + "BL=1 " + resetWaveform);
        EXPECT_EQ(value, 0x8B);
        EXPECT_EQ(status, 0x8B);
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
    EXPECT_TRUE(bus.lcd.resetController());
    EXPECT_EQ(bus.pins.takeWaveform(), resetWaveform);
    EXPECT_TRUE(bus.lcd.init() && bus.lcd.deinit());
    bus.pins.take();
    EXPECT_TRUE(refusesAll());
    EXPECT_EQ(bus.pins.take(), "");
}

TEST(LcdRa8822, ChecksTheBitsOfTheMask)
{
    struct Case {
        unsigned char value, readBack, mask;
        std::string warning;
    };
    for (const Case& c : {Case{0x6B, 0x4B, 0xFF, "WARNING: value '107' written to register 16 read back as '75'\n"},
                          Case{0x6B, 0x6B, 0xFF, ""}, Case{0x55, 0xAA, 0x00, ""}, Case{0x6B, 0x1B, 0x0F, ""},
                          Case{0x6C, 0x1B, 0x0F, "WARNING: value '12' written to register 16 read back as '11'\n"}}) {
        Bus bus(ra8803Id);
        bus.respond(c.readBack);
        std::cout << std::hex;
        EXPECT_EQ(bus.lcd.writeCmdAndVerify(0x10, c.value, c.mask), c.warning.empty());
        EXPECT_EQ(bus.log.take(), c.warning);
    }
}

TEST(LcdRa8822, StopsAtAPinThatThrows)
{
    Bus dead;
    dead.pins.broken = {"12=1"};
    EXPECT_FALSE(dead.lcd.init() || dead.lcd.isInitialized());
    EXPECT_EQ(dead.log.take(), "! ERROR: unable to reset lcd controller; broken\n"
                               "! ERROR: error while resetting lcd controller\n");
    Bus bus(ra8803Id);
    std::cerr << std::hex;
    bus.pins.broken = {"out 1"};
    EXPECT_FALSE(bus.lcd.writeCmd(0x12, 0xA1));
    EXPECT_EQ(bus.log.take(), "! ERROR: unable to write lcd controller command '161' to register '18'; broken\n");
    EXPECT_FALSE(bus.lcd.writeCmd(0x12, 0xA1));
    EXPECT_EQ(bus.pins.take(), "out 0 out 1 out 0 out 1") << "the direction is still taken for input";
    for (const char* failing : {"5?", "5=1", "9=1"}) { // the read, the write, both
        bus.pins.broken = {failing};
        EXPECT_FALSE(bus.lcd.writeCmdAndVerify(0x01, 0x20, 0)) << failing;
    }
}
