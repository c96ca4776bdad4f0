#include "panelsim/Board.h"

#include "panelsim/BoardGpioFactory.h"
#include "panelsim/PanelText.h"

#include <gtest/gtest.h>

#include <system_error>

using namespace panelsim;
using sysfs::PinDirectionEn;
using namespace std::chrono_literals;

namespace {

constexpr unsigned data0 = 40;
constexpr unsigned registerSelect = 48;
constexpr unsigned chipSelect = 49;
constexpr unsigned readStrobe = 50;
constexpr unsigned writeStrobe = 51;
constexpr unsigned reset = 52;

/** The bus by hand, with a clock that stands still unless told otherwise. */
class Bench {
public:
    explicit Bench(ChipVariant chip) : board(config(chip), [this] { return now; })
    {
        for (unsigned gpio = data0; gpio <= reset; ++gpio) {
            board.makeOutput(gpio, gpio >= chipSelect);
        }
    }
    void data(unsigned char byte)
    {
        for (unsigned i = 0; i < 8; ++i) {
            board.drive(data0 + i, (byte >> i & 1U) != 0);
        }
    }
    void write(bool select, unsigned char byte)
    {
        data(byte);
        board.drive(registerSelect, select);
        strobe(writeStrobe, [] {});
    }
    template <typename Meanwhile>
    void strobe(unsigned line, Meanwhile meanwhile, std::chrono::nanoseconds width = 10us)
    {
        board.drive(chipSelect, false);
        board.drive(line, false);
        now += width;
        meanwhile();
        board.drive(line, true);
        board.drive(chipSelect, true);
    }
    unsigned char read(bool select)
    {
        unsigned byte = 0;
        for (unsigned i = 0; i < 8; ++i) {
            board.makeInput(data0 + i);
        }
        board.drive(registerSelect, select);
        strobe(readStrobe, [&] {
            for (unsigned i = 0; i < 8; ++i) {
                byte |= static_cast<unsigned>(board.read(data0 + i)) << i;
            }
        });
        for (unsigned i = 0; i < 8; ++i) {
            board.makeOutput(data0 + i, false);
        }
        return static_cast<unsigned char>(byte);
    }
    std::vector<BusFault::Kind> faults() const
    {
        std::vector<BusFault::Kind> kinds;
        for (const BusFault& fault : board.busFaults()) {
            kinds.push_back(fault.kind);
        }
        return kinds;
    }

    std::chrono::nanoseconds now{0};
    Board board;

private:
    static BoardConfig config(ChipVariant chip)
    {
        BoardConfig config;
        config.chip = chip;
        return config;
    }
};

std::unique_ptr<sysfs::ISysfsGpio> pinOn(Board& board, unsigned gpio)
{
    auto pin = BoardGpioFactory(board).create();
    pin->exportGpio(gpio);
    return pin;
}

template <typename Action>
int errorOf(Action action)
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
    EXPECT_EQ(ra8803.read(false), 0x18);
    ra8803.write(true, 'x');
    EXPECT_EQ(ra8803.board.view().lcd->lines[0][0].code, 'x');
    EXPECT_EQ(ra8803.read(true), 0x40);

    Bench ra8806(ChipVariant::Ra8806);
    ra8806.write(true, 0x20);
    ra8806.write(false, 0x18);
    EXPECT_EQ(ra8806.read(false), 0x18);
    ra8806.write(true, 0xB0);
    ra8806.write(false, 'x');
    ra8806.write(false, 'y');
    EXPECT_EQ(ra8806.board.view().lcd->lines[0][1].code, 'y');
    EXPECT_EQ(ra8806.read(true), 0x40);
    EXPECT_TRUE(ra8803.faults().empty() && ra8806.faults().empty());
}

TEST(LcdBus, KeepsMemoryButNotRegistersOverAReset)
{
    Bench bench(ChipVariant::Ra8806);
    bench.write(true, 0xB0);
    bench.write(false, 'x');
    bench.board.drive(reset, false);
    bench.board.drive(reset, true);
    EXPECT_EQ(bench.board.lcdRegister(0x60), 0);
    EXPECT_EQ(bench.board.view().lcd->lines[0][0].code, 'x');
}

TEST(LcdBus, NoticesWhatAChipWouldSufferFrom)
{
    using Kind = BusFault::Kind;
    struct Case {
        const char* what;
        std::function<void(Bench&)> action;
        std::vector<Kind> faults;
    };
    const Case cases[] = {
        {"data moved", [](Bench& b) { b.strobe(writeStrobe, [&] { b.data(0xFF); }); }, {Kind::DataChanged}},
        {"register select moved",
         [](Bench& b) { b.strobe(readStrobe, [&] { b.board.drive(registerSelect, true); }); },
         {Kind::Contention, Kind::DataChanged}},
        {"both strobes",
         [](Bench& b) {
             b.strobe(writeStrobe, [&] {
                 b.board.drive(readStrobe, false);
                 b.board.drive(readStrobe, true);
             });
         },
         {Kind::BothStrobes}},
        {"short strobe",
         [](Bench& b) {
             b.strobe(
                 writeStrobe, [] {}, 9999ns);
         },
         {Kind::ShortStrobe}},
        {"chip select released",
         [](Bench& b) { b.strobe(writeStrobe, [&] { b.board.drive(chipSelect, true); }); },
         {Kind::ChipSelectMoved}},
        {"access during reset",
         [](Bench& b) {
             b.board.drive(reset, false);
             b.write(true, 0);
             b.board.drive(reset, true);
         },
         {Kind::AccessDuringReset}},
        {"contention", [](Bench& b) { b.strobe(readStrobe, [] {}); }, {Kind::Contention}},
        {"strobe before chip select",
         [](Bench& b) {
             b.board.drive(writeStrobe, false);
             b.board.drive(chipSelect, false);
             b.now += 10us;
             b.board.drive(writeStrobe, true);
             b.board.drive(chipSelect, true);
         },
         {Kind::ChipSelectMoved}},
        {"strobe without chip select",
         [](Bench& b) {
             b.board.drive(writeStrobe, false);
             b.board.drive(writeStrobe, true);
         },
         {}},
    };
    for (const Case& c : cases) {
        Bench bench(ChipVariant::Ra8806);
        c.action(bench);
        EXPECT_EQ(bench.faults(), c.faults) << c.what;
        EXPECT_EQ(bench.board.busFaultCount(), c.faults.size());
        bench.board.clearBusFaults();
        bench.write(true, 0x20);
        bench.write(false, 0x18);
        EXPECT_EQ(bench.read(false), 0x18) << "works on after: " << c.what;
        EXPECT_TRUE(bench.faults().empty());
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
    EXPECT_FALSE(board.lineLevel(20));
    EXPECT_TRUE(led->getValue());
    led->setDirection(PinDirectionEn::Input);
    led->setDirection(PinDirectionEn::Output);
    EXPECT_FALSE(board.lineLevel(20)) << "the last level comes back";
    led->deinit();
    EXPECT_EQ(errorOf([&] { pinOn(board, 20); }), 0);
    EXPECT_THROW(led->setValue(true), std::logic_error);
}

TEST(BoardGpio, FailsWhenItIsToldTo)
{
    Board board{BoardConfig()};
    PinFault second;
    second.gpio = 20;
    second.operation = PinOperation::SetValue;
    second.call = 2;
    board.failPin(second);
    PinFault refused;
    refused.kind = PinFault::Kind::False;
    refused.gpio = 21;
    refused.lasting = true;
    board.failPin(refused);
    const auto a = pinOn(board, 20);
    const auto b = pinOn(board, 21);
    EXPECT_TRUE(a->init(false, PinDirectionEn::Output, false));
    EXPECT_FALSE(b->init(false, PinDirectionEn::Output, true));
    EXPECT_FALSE(board.lineLevel(21));
    EXPECT_TRUE(a->setValue(true));
    EXPECT_THROW(a->setValue(false), std::runtime_error);
    EXPECT_TRUE(board.lineLevel(20)) << "a failing call has no effect";
    EXPECT_TRUE(a->setValue(false));
    EXPECT_FALSE(b->setValue(true));
    EXPECT_EQ(board.pinOperations(), 10U);
    board.clearPinFaults();
    EXPECT_TRUE(b->init(false, PinDirectionEn::Output, true));
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
    PanelView view;
    view.leds = {true, false};
    view.keys = {false, true};
    view.lcd.emplace();
    view.lcd->displayOn = true;
    view.lcd->contrast = 15;
    view.lcd->lines = {{{'a', false}, {0xE4, true}, {0x01, true}}, {{'b', false}, {'c', false}, {'d', false}}};
    EXPECT_EQ(drawPanel(view, TextStyle::Plain), "┌─────┐\n│ aä· │\n│  ^^ │\n│ bcd │\n└─────┘\n"
                                                 "display on, backlight off, contrast 15/31\n"
                                                 "LEDs ● ○   keys  0  [1]\n");
    EXPECT_EQ(drawPanel(view, TextStyle::Terminal), "┌─────┐\n│ a\033[7mä·\033[0m │\n│ bcd │\n└─────┘\n"
                                                    "display on, backlight off, contrast 15/31\n"
                                                    "LEDs \033[32m●\033[0m ○   keys  0  [1]\n");
    view.lcd->displayOn = false;
    view.lcd->backlight = true;
    view.lcd->contrast.reset();
    EXPECT_EQ(drawPanel(view, TextStyle::Plain), "┌─────┐\n│     │\n│     │\n└─────┘\ndisplay off, backlight on\n"
                                                 "LEDs ● ○   keys  0  [1]\n");
    view.lcd.reset();
    EXPECT_EQ(drawPanel(view, TextStyle::Plain), "LEDs ● ○   keys  0  [1]\n");
}
