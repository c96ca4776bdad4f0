#include "frontpanelhw/lcd/LcdRa8822.h"

#include "frontpanelhw/lcd/LcdRa8822GpioCreator.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FakePins.h"
#include "tests/support/VirtualTime.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

using namespace frontpanelhw::lcd;

const std::string configuration =
    "init 0 out 0 init 1 out 0 init 2 out 0 init 3 out 0 init 4 out 0 init 5 out 0 init 6 out 0 init 7 out 0 "
    "init 8 out 0 init 9 inverted out 0 init 10 inverted out 0 init 11 inverted out 0 init 12 inverted out 0 "
    "init 13 out 0";
const std::string reset =
    "data->out data=11111111 RS=1 CS=0 RD=0 WR=0 RST=0 CS=1 1000us RST=1 300000us RST=0 1000us CS=0 60000us ";
const std::string idRead = "data=00000000 RS=0 CS=1 RD=0 WR=1 10us WR=0 CS=0 1us data->in RS=0 CS=1 RD=1 10us data?";

/** A driver on fake pins, in the order of the timing diagram. */
struct Bus {
    /** With a chip that always responds with this byte. */
    explicit Bus(unsigned char byte)
    {
        for (unsigned i = 0; i < 8; ++i) {
            pins.levels.at(i) = (byte >> i & 1U) != 0;
        }
        pins.take();
    }
    /** Leaves the data lines as inputs. */
    void init()
    {
        EXPECT_TRUE(lcd.init());
        pins.take();
        log.take();
    }

    FakePins pins;
    CapturedOutput log;
    VirtualTime time{[this](const std::string& sleep) { return pins.happen(sleep); }};
    std::unique_ptr<LcdRa8822Gpios> gpios = LcdRa8822GpioCreator(pins).create();
    LcdRa8822 lcd{*gpios, false};
};

TEST(LcdRa8822, IdentifiesTheChipProducesItsBusCyclesAndReportsAPinThatThrows)
{
    const struct {
        unsigned char id;
        unsigned type;
        std::string log, broken = "";
    } chips[] = {{0xC9, LcdRa8822::ra8803, "INFO: LcdControl c9\nff"},
                 {0x0F, LcdRa8822::ra8806, "INFO: LcdControl f\nff"},
                 {0xC9, LcdRa8822::ra8806,
                  "! ERROR: unable to read lcd controller register '0'; broken\nINFO: LcdControl 0\nff", "7?"}};
    for (const auto& chip : chips) {
        Bus bus(chip.id);
        bus.pins.broken = {chip.broken};
        EXPECT_TRUE(bus.lcd.init() && bus.lcd.isInitialized());
        EXPECT_EQ(bus.pins.takeWaveform().rfind(configuration + " " + reset + idRead, 0), 0U);
        std::cout << 255;
        EXPECT_EQ(bus.log.take(), chip.log);

        const bool isRa8803 = chip.type == LcdRa8822::ra8803;
        const std::string address = std::string(isRa8803 ? "0" : "1") + " CS=1 RD=0 WR=1 10us WR=0 CS=0 1us ";
        const std::string write = "data=00010010 RS=" + address + "data=10100001 RS=0 CS=1 WR=1 10us WR=0 CS=0 1us ";
        const std::string read =
            "data->out data=11111110 RS=" + address + "data->in RS=0 CS=1 RD=1 10us data? RD=0 CS=0 1us ";
        const std::string data =
            (isRa8803 ? "data=01000001 RS=1" : "data=10110000 RS=" + address + "data=01000001 RS=0") +
            " CS=1 RD=0 WR=1 10us WR=0 CS=0 ";
        const std::string status = "data->in RS=1 CS=1 RD=1 WR=0 10us data? RD=0 CS=0 ";
        unsigned char byte = 0;
        const struct {
            std::function<bool()> operation;
            std::string waveform, broken, error;
            bool always = false;
        } rows[] = {{[&] { return bus.lcd.writeCmd(0x12, 0xA1) && bus.lcd.writeCmd(0x12, 0xA1); },
                     "data->out " + write + write, "out 1", "write lcd controller command '161' to register '18';"},
                    {[&] { return bus.lcd.writeData(0x41) && bus.lcd.writeData(0x41); }, "data->out " + data + data,
                     "9=1", "write lcd controller data;"},
                    {[&] { return bus.lcd.readCmd(0xFE, byte) && byte == chip.id && bus.lcd.writeData(0x41); },
                     read + "data->out " + data, "7?", "read lcd controller register '254';"},
                    {[&] { return bus.lcd.readStatus(byte) && byte == chip.id && bus.lcd.writeData(0x41); },
                     status + "data->out " + data, "7?", "read lcd controller status"},
                    {[&] { return bus.lcd.setBacklight(true); }, "BL=1 ", "13=1", "set lcd backlight gpio value;"},
                    {[&] { return bus.lcd.resetController(); }, reset, "12=1", "reset lcd controller;", true}};
        for (const auto& row : rows) {
            bus.init();
            EXPECT_EQ(bus.lcd.lcdType(), chip.type) << "a variant once found is kept";
            EXPECT_TRUE(row.operation()) << row.error;
            EXPECT_EQ(bus.pins.takeWaveform() + " " + bus.log.take(), row.waveform);
            bus.init();
            bus.pins.broken = {row.broken};
            EXPECT_FALSE(row.operation() || row.operation());
            const std::string line = "! ERROR: unable to " + row.error + " broken\n";
            EXPECT_EQ(bus.log.take(), line + line);
            bus.pins.broken.clear();
            EXPECT_TRUE(bus.lcd.deinit());
            bus.pins.take();
            EXPECT_EQ(row.operation(), row.always);
            EXPECT_TRUE(!bus.lcd.readCmd(0, byte) && bus.lcd.getData() == 0) << row.error;
            EXPECT_EQ(bus.pins.take().empty(), !row.always);
        }
    }
}

TEST(LcdRa8822, ChecksTheBitsOfTheMask)
{
    const std::string unwritten = "! ERROR: unable to write lcd controller command '32' to register '16'; broken\n";
    const std::string unread = "! ERROR: unable to read lcd controller register '16'; broken\n";
    const struct {
        unsigned char value, readBack, mask;
        std::string log, broken = "";
    } cases[] = {{0x6B, 0x4B, 0xFF, "WARNING: value '107' written to register 16 read back as '75'\n"},
                 {0x6B, 0x6B, 0xFF, ""},
                 {0x55, 0xAA, 0x00, ""},
                 {0x6B, 0x1B, 0x0F, ""},
                 {0x6C, 0x1B, 0x0F, "WARNING: value '12' written to register 16 read back as '11'\n"},
                 {0x20, 0x00, 0x00, unread, "7?"},
                 {0x20, 0x00, 0x00, unwritten, "5=1"},
                 {0x20, 0x00, 0x00, unwritten + unread, "9=1"}};
    for (const auto& c : cases) {
        Bus bus(c.readBack);
        bus.pins.refused = {"init 5 out 0"};
        EXPECT_FALSE(bus.lcd.init() || bus.lcd.writeCmdAndVerify(0x10, c.value, c.mask)) << "not initialised";
        bus.pins.refused = {};
        bus.init();
        EXPECT_TRUE(bus.lcd.getLines() == 3 && bus.lcd.getChars() == 25);
        bus.pins.broken = {c.broken};
        (std::cout << std::hex, std::cerr << std::hex);
        EXPECT_EQ(bus.lcd.writeCmdAndVerify(0x10, c.value, c.mask), c.log.empty());
        EXPECT_EQ(bus.log.take(), c.log);
    }
}
