#include "panelsim/board/Board.h"

#include "panelsim/board/BoardGpioFactory.h"
#include "panelsim/picture/PanelText.h"

#include <gtest/gtest.h>

#include <system_error>

using namespace panelsim;
using sysfs::PinDirectionEn;
using namespace std::chrono_literals;

namespace {

/** The bus by hand, with a clock that stands still but during a strobe. */
class Bench {
public:
    using Line = bool LcdLevels::*;
    using Action = std::function<void()>;

    explicit Bench(ChipVariant chip) : bus(chip, 10us) {}

    void write(bool select, unsigned char byte)
    {
        levels.data = byte;
        levels.dataDriven = 0xFF;
        drive(&LcdLevels::registerSelect, select);
        strobe(&LcdLevels::writeStrobe, [] {});
    }
    void writeRa8806(unsigned char reg, unsigned char value)
    {
        write(true, reg);
        write(false, value);
    }
    unsigned read(bool select)
    {
        unsigned byte = 0;
        levels.dataDriven = 0;
        drive(&LcdLevels::registerSelect, select);
        strobe(&LcdLevels::readStrobe, [&] { byte = bus.drivenByte().value_or(0); });
        EXPECT_FALSE(bus.drivenByte());
        return byte;
    }
    void strobe(Line line, const Action& meanwhile, std::chrono::nanoseconds width = 10us)
    {
        pulse(&LcdLevels::chipSelect, [&] {
            pulse(line, [&] {
                now += width;
                meanwhile();
            });
        });
    }
    /** Drives the line low meanwhile. */
    void pulse(Line line, const Action& meanwhile)
    {
        drive(line, false);
        meanwhile();
        drive(line, true);
    }
    void drive(Line line, bool level)
    {
        levels.*line = level;
        bus.update(levels, now);
    }
    void driveData(unsigned char byte)
    {
        levels.data = byte;
        bus.update(levels, now);
    }
    unsigned char shownCode(std::size_t column) const { return bus.chip().shown()[0][column].code; }

    std::chrono::nanoseconds now{0};
    LcdLevels levels;
    LcdBus bus;
};

std::unique_ptr<sysfs::ISysfsGpio> pinOn(Board& board, unsigned gpio)
{
    auto pin = BoardGpioFactory(board).create();
    pin->exportGpio(gpio);
    return pin;
}

int errorOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const std::system_error& e) {
        return e.code().value();
    }
    return 0;
}

} // namespace

TEST(LcdBus, DecodesCyclesAsTheVariantDoes)
{
    Bench ra8803(ChipVariant::Ra8803);
    ra8803.write(false, 0x00);
    EXPECT_EQ(ra8803.read(false), LcdChip::ra8803Id);
    ra8803.write(false, 0x20);
    ra8803.write(false, 0x18);
    ra8803.write(false, 0x20);
    EXPECT_EQ(ra8803.read(false), 0x18U);
    ra8803.write(true, 'x');
    EXPECT_EQ(ra8803.shownCode(0), 'x');
    EXPECT_EQ(ra8803.read(true), 0x40U);

    Bench ra8806(ChipVariant::Ra8806);
    ra8806.writeRa8806(0x20, 0x18);
    EXPECT_EQ(ra8806.read(false), 0x18U);
    ra8806.writeRa8806(0xB0, 'x');
    ra8806.write(false, 'y');
    EXPECT_EQ(ra8806.read(true), 0x40U);
    ra8806.pulse(&LcdLevels::reset, [] {});
    EXPECT_EQ(ra8806.bus.chip().registerValue(0x60), 0) << "a reset clears registers but not the memory";
    EXPECT_EQ(ra8806.shownCode(0), 'x');
    ra8806.writeRa8806(0x20, 0x18);
    EXPECT_EQ(ra8806.shownCode(1), 'y');
    EXPECT_EQ(ra8803.bus.faultCount() + ra8806.bus.faultCount(), 0U);
}

TEST(LcdBus, NoticesWhatAChipWouldSufferFrom)
{
    using Kind = BusFault::Kind;
    struct Case {
        const char* what;
        std::function<void(Bench&)> action;
        std::vector<Kind> faults;
    };
    const auto nothing = [] {};
    const auto chipSelect = &LcdLevels::chipSelect;
    const auto readStrobe = &LcdLevels::readStrobe;
    const auto writeStrobe = &LcdLevels::writeStrobe;
    const auto moveData = [](Bench& b) {
        b.driveData(1);
        b.driveData(3);
    };
    const Case cases[] = {
        {"data moved", [&](Bench& b) { b.strobe(writeStrobe, [&] { moveData(b); }); }, {Kind::DataChanged}},
        {"register select moved",
         [&](Bench& b) { b.strobe(readStrobe, [&] { b.drive(&LcdLevels::registerSelect, true); }); },
         {Kind::DataChanged}},
        {"both strobes",
         [&](Bench& b) { b.strobe(writeStrobe, [&] { b.pulse(readStrobe, nothing); }); },
         {Kind::BothStrobes}},
        {"short strobe", [&](Bench& b) { b.strobe(writeStrobe, nothing, 9999ns); }, {Kind::ShortStrobe}},
        {"chip select released",
         [&](Bench& b) { b.strobe(writeStrobe, [&] { b.drive(chipSelect, true); }); },
         {Kind::ChipSelectMoved}},
        {"access during reset",
         [](Bench& b) { b.pulse(&LcdLevels::reset, [&] { b.write(true, 0); }); },
         {Kind::AccessDuringReset}},
        {"strobe before chip select",
         [&](Bench& b) {
             b.drive(writeStrobe, false);
             b.strobe(writeStrobe, nothing);
         },
         {Kind::ChipSelectMoved}},
        {"strobe without chip select", [&](Bench& b) { b.pulse(writeStrobe, nothing); }, {}},
    };
    for (const Case& c : cases) {
        Bench bench(ChipVariant::Ra8806);
        c.action(bench);
        std::vector<Kind> kinds;
        for (const BusFault& fault : bench.bus.faults()) {
            kinds.push_back(fault.kind);
        }
        EXPECT_EQ(kinds, c.faults) << c.what;
        EXPECT_EQ(bench.bus.faultCount(), c.faults.size());
        bench.bus.clearFaults();
        bench.writeRa8806(0x20, 0x18);
        EXPECT_EQ(bench.read(false), 0x18U) << "works on after: " << c.what;
        EXPECT_TRUE(bench.bus.faults().empty() && bench.bus.faultCount() == 0);
    }
}

TEST(BoardGpio, AnswersAsTheKernelDoes)
{
    Board board{BoardConfig()};
    const auto led = pinOn(board, 20);
    EXPECT_EQ(errorOf([&] { pinOn(board, 20); }), EBUSY);
    EXPECT_EQ(errorOf([&] { pinOn(board, 99); }), EINVAL);
    led->init(true, PinDirectionEn::Input, false);
    EXPECT_EQ(errorOf([&] { led->setValue(true); }), EPERM);
    led->init(true, PinDirectionEn::Output, true);
    EXPECT_EQ(board.lineLevel(20), LineLevel::Low);
    EXPECT_TRUE(led->getValue());
    led->setDirection(PinDirectionEn::Input);
    led->setDirection(PinDirectionEn::Output);
    EXPECT_EQ(board.lineLevel(20), LineLevel::Low) << "the last level comes back";
    led->deinit();
    EXPECT_EQ(errorOf([&] { pinOn(board, 20); }), 0);
    EXPECT_THROW(led->setValue(true), std::logic_error);
}

TEST(BoardGpio, FailsWhenItIsToldTo)
{
    Board board{BoardConfig()};
    board.failPin({20, PinOperation::SetValue, 2});
    board.failPin({21, {}, 1, {}, PinFault::Kind::False});
    const auto a = pinOn(board, 20);
    const auto b = pinOn(board, 21);
    EXPECT_TRUE(a->init(false, PinDirectionEn::Output, false));
    EXPECT_FALSE(b->init(false, PinDirectionEn::Output, true));
    EXPECT_NE(board.lineLevel(21), LineLevel::High);
    EXPECT_TRUE(a->setValue(true));
    EXPECT_THROW(a->setValue(false), std::runtime_error);
    EXPECT_EQ(board.lineLevel(20), LineLevel::High) << "a failing call has no effect";
    EXPECT_TRUE(a->setValue(false));
    EXPECT_FALSE(b->setValue(true));
    EXPECT_EQ(board.pinOperations(), 10U);
    board.clearPinFaults();
    EXPECT_TRUE(b->init(false, PinDirectionEn::Output, true));
}

TEST(Board, HasLinesThatAreStuckAndAChipThatIsSilent)
{
    BoardConfig config;
    config.stuckLines = {{10, true}, {20, true}, {28, false}, {47, true}, {50, false}};
    config.silentChip = true;
    Board board{config};
    board.makeOutput(28, true);
    EXPECT_TRUE(board.read(10)) << "a key";
    EXPECT_TRUE(board.view().leds[0]);
    EXPECT_FALSE(board.view().lcd->backlight) << "driven in vain";
    board.makeOutput(49, false); // chip select, with the read strobe stuck low
    EXPECT_TRUE(board.read(47)) << "a data line";
    EXPECT_FALSE(board.read(46) || board.view().lcd->identified) << "of a chip that answers, 0xC9 or the register's 0";
    EXPECT_EQ(board.busFaults().at(0).kind, BusFault::Kind::ChipSelectMoved);
    config.stuckLines = {{99, true}};
    EXPECT_THROW(Board other(config), std::invalid_argument);
}

TEST(Board, CountsHandsOnAKeyAndReadsOfIt)
{
    Board board{BoardConfig()};
    unsigned changes = 0;
    board.onChange([&] { ++changes; });
    board.press(1, 7);
    board.press(1, 8);
    board.release(1, 7);
    board.release(1, 9);
    EXPECT_TRUE(board.read(11) && board.read(11));
    board.release(1, 8);
    EXPECT_FALSE(board.read(11));
    EXPECT_EQ(board.keyReads(1), 3U);
    EXPECT_EQ(changes, 4U) << "pressed, seen, released, seen";
}

TEST(Board, TellsTheBusWhatItsLinesDo)
{
    Board board{BoardConfig()};
    for (const unsigned dataThenSelectThenReadStrobe : {40U, 49U, 50U}) {
        board.makeOutput(dataThenSelectThenReadStrobe, false);
    }
    EXPECT_EQ(board.busFaults().at(0).kind, BusFault::Kind::Contention);
    EXPECT_EQ(board.busFaultCount(), 1U);
    board.clearBusFaults();
    EXPECT_EQ(board.busFaults().size() + board.busFaultCount(), 0U);
}

TEST(Board, RefusesWiringThatOverlapsAndKeysThatItHasNot)
{
    BoardConfig config;
    config.ledCount = 40;
    EXPECT_THROW(Board board(config), std::invalid_argument);
    Board board{BoardConfig()};
    EXPECT_THROW(board.press(3), std::out_of_range);
}

TEST(PanelText, DrawsThePanelPlainAndForATerminal)
{
    const std::string plainLeds = "LEDs ● ○   keys  0  [1]\n";
    PanelView view;
    view.leds = {true, false};
    view.keys = {false, true};
    EXPECT_EQ(drawPanel(BoardConfig(), view, TextStyle::Plain), plainLeds);
    BoardConfig named;
    named.keyNames = {"Up", "Down"};
    named.ledNames = {"Power", "Alarm"};
    named.ledColours = {"red", "blue"};
    EXPECT_EQ(drawPanel(named, view, TextStyle::Plain), "LEDs ● Power (red)  ○ Alarm    keys  Up  [Down]\n");
    EXPECT_EQ(drawPanel(named, view, TextStyle::Terminal),
              "LEDs \033[31m●\033[0m Power  ○ Alarm    keys  Up  [Down]\n");
    view.lcd.emplace();
    view.lcd->backlight = true;
    view.lcd->lines = {{{'a', false}, {0xE4, true}, {0x01, true}}, {{'b', false}, {'c', false}, {'d', false}}};
    EXPECT_EQ(drawPanel(BoardConfig(), view, TextStyle::Plain), "┌─────┐\n│     │\n│     │\n└─────┘\n"
                                                                "display off, backlight on\n" +
                                                                    plainLeds);
    view.lcd->displayOn = true;
    view.lcd->backlight = false;
    view.lcd->contrast = 15;
    EXPECT_EQ(drawPanel(BoardConfig(), view, TextStyle::Plain), "┌─────┐\n│ aä· │\n│  ^^ │\n│ bcd │\n└─────┘\n"
                                                                "display on, backlight off, contrast 15/31\n" +
                                                                    plainLeds);
    EXPECT_EQ(drawPanel(BoardConfig(), view, TextStyle::Terminal), "┌─────┐\n│ a\033[7mä·\033[0m │\n│ bcd │\n└─────┘\n"
                                                                   "display on, backlight off, contrast 15/31\n"
                                                                   "LEDs \033[32m●\033[0m ○   keys  0  [1]\n");
}
