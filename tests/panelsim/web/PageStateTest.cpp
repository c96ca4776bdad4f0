#include "panelsim/web/PageState.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using namespace panelsim;
using nlohmann::json;

/** Writes to the LCD of a board by its lines. */
class LcdLines {
public:
    explicit LcdLines(Board& itsBoard) : board(itsBoard), base(itsBoard.getConfig().lcdGpioBase)
    {
        for (unsigned line = 0; line < 13; ++line) {
            board.makeOutput(base + line, line >= chipSelect);
        }
    }
    void write(bool select, unsigned value)
    {
        board.drive(base + registerSelect, select);
        for (unsigned bit = 0; bit < 8; ++bit) {
            board.drive(base + bit, (value >> bit & 1U) != 0);
        }
        for (const bool level : {false, true}) {
            board.drive(base + (level ? writeStrobe : chipSelect), level);
            board.drive(base + (level ? chipSelect : writeStrobe), level);
        }
    }
    void writeRegister(unsigned reg, unsigned value)
    {
        write(false, reg);
        write(false, value);
    }

private:
    static constexpr unsigned registerSelect = 8;
    static constexpr unsigned chipSelect = 9;
    static constexpr unsigned writeStrobe = 11;
    Board& board;
    unsigned base;
};

TEST(PageState, TellsWhatTheLcdShows)
{
    BoardConfig config;
    config.chip = ChipVariant::Ra8803;
    config.shortestStrobe = std::chrono::hours(1);
    Simulation simulation(config);
    LcdLines lcd(simulation.board);
    lcd.writeRegister(0xF0, 0x08); // clear
    lcd.writeRegister(0x20, 24);
    lcd.writeRegister(0x30, 47);
    lcd.writeRegister(0xD0, 31);
    lcd.writeRegister(0x00, 0x04); // display on
    lcd.writeRegister(0x10, 0x20); // not inverted
    lcd.write(true, 'A');
    lcd.write(true, 0xFC);
    lcd.writeRegister(0x10, 0); // inverted
    lcd.write(true, 0x07);
    const json state = json::parse(stateJson(simulation, false));
    const std::string blank(25, ' ');
    EXPECT_EQ(state.at("lcd"),
              json({{"chip", "RA8803"},
                    {"identified", false},
                    {"displayOn", true},
                    {"backlight", false},
                    {"contrast", 31},
                    {"lines", {"A\u00FC\u00B7" + blank.substr(3), blank, blank}},
                    {"inverted", {"001" + std::string(22, '0'), std::string(25, '0'), std::string(25, '0')}}}));
    EXPECT_EQ(state.at("busFaults").at("count"), 17);
    EXPECT_EQ(state.at("busFaults").at("first").at(0), describe(simulation.board.busFaults().front()));
    EXPECT_TRUE(json::parse(stateJson(Simulation(outdoorBoard()), true)).at("lcd").is_null());
}

} // namespace
