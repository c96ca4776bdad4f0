#include "panelsim/board/Board.h"

#include "panelsim/board/AppLog.h"
#include "panelsim/picture/PanelText.h"
#include "tests/panelsim/FakeApplication.h"

#include <cctype>
#include <gtest/gtest.h>

using namespace panelsim;
using namespace std::chrono_literals;

/** The bus by hand, with a clock that stands still but for strobes. */
struct Bench {
    /**
     * A letter is a line that goes low, or high when it is upper case: a register select, s chip select, r and w
     * strobes, z reset. A digit is the level of the data lines, d or x that they are driven or released, + or - that
     * the shortest strobe or less passes, g that the byte that the chip drives is read.
     */
    void run(const std::string& script)
    {
        constexpr bool LcdLevels::*lines[] = {&LcdLevels::registerSelect, &LcdLevels::chipSelect,
                                              &LcdLevels::readStrobe, &LcdLevels::writeStrobe, &LcdLevels::reset};
        for (const char c : script) {
            const auto line = std::string("asrwz").find(static_cast<char>(std::tolower(c)));
            if (line != std::string::npos) {
                levels.*lines[line] = std::isupper(c) != 0;
            } else if (c == 'd' || c == 'x') {
                levels.dataDriven = c == 'd' ? 255 : 0;
            } else if (c == '+' || c == '-') {
                now += c == '+' ? 10us : 9999ns;
            } else if (c == 'g') {
                read.push_back(bus.drivenByte() ? *bus.drivenByte() : -1);
            } else {
                levels.data = static_cast<unsigned>(c - '0');
            }
            bus.update(levels, now);
        }
    }

    LcdBus bus;
    std::chrono::nanoseconds now{0};
    LcdLevels levels = {};
    std::vector<int> read = {};
};

TEST(LcdBus, NoticesWhatAChipWouldSufferFrom)
{
    const struct {
        const char* script;
        std::string fault;
        unsigned char taken; ///< into register 0
    } cases[] = {
        {"4dsw+WS", "", 4},
        {"4dsw+13WS", "data or register select changed during a strobe at 10000 ns", 3},
        {"4dsw+xWS", "data or register select changed during a strobe at 10000 ns", 4},
        {"4sr+ARS", "data or register select changed during a strobe at 10000 ns", 0},
        {"4dsw+rRWS", "read and write strobe asserted at once at 10000 ns", 0},
        {"+4dsw-WS", "strobe too short at 19999 ns", 4},
        {"4dsw+SWS", "chip select changed during a strobe at 10000 ns", 4},
        {"4dws+WS", "chip select changed during a strobe at 0 ns", 4}, // it follows the strobe
        {"4dzsw+WSZ", "access while the chip is held in reset at 0 ns", 0},
        {"4dsw+zZWS", "access while the chip is held in reset at 10000 ns", 0},
        {"4dw+W", "", 0},
        {"4sr+dRS", "processor and chip drive the data lines at once at 10000 ns", 0},
    };
    for (const auto& [script, fault, taken] : cases) {
        Bench bench{LcdBus(ChipVariant::Ra8806, 10us)};
        bench.run(script);
        EXPECT_EQ(bench.bus.faultCount(), fault.empty() ? 0U : 1U) << script;
        EXPECT_EQ(bench.bus.faults().empty() ? "" : describe(bench.bus.faults().at(0)), fault) << script;
        EXPECT_EQ(bench.bus.chip().registerValue(0), taken) << script;
        bench.bus.clearFaults();
        bench.run("5dAsw+WS6asw+WSxsr+gRgSAsr+gRS");
        EXPECT_EQ(bench.read, (std::vector<int>{6, -1, 0x40})) << "works on after " << script;
        EXPECT_TRUE(bench.bus.faults().empty() && bench.bus.faultCount() == 0) << script;
    }
    Bench inReset{LcdBus(ChipVariant::Ra8803, 10us)};
    inReset.run("zsr+gRSZsr+gRS");
    EXPECT_EQ(inReset.read, (std::vector<int>{-1, LcdChip::ra8803Id}));
}

TEST(Board, ShowsWhatIsDoneToIt)
{
    Board board(FakeApplication::boardConfig());
    FakeApplication app(board);
    const auto expectShown = [&](const char* part) {
        const std::string text = drawPanel(board.getConfig(), board.view(), TextStyle::Plain);
        EXPECT_NE(text.find(part), std::string::npos) << text << part;
    };
    app.turnDisplayOn(); // with what the memory holds at power-up
    expectShown("│ !\"#$%&'()*+,-./0123456789 │\n│ ^  ^  ^  ^  ^  ^  ^  ^  ^ │\n│ mnopqrstuvwxyz!\"#$%&'()*+ │\n│   ^");
    app.clear();
    app.show(1, "abc");
    app.show(2, std::string(24, '.') + "xyz", true);
    app.light(3);
    board.press(1, 7);
    board.press(1, 8);
    app.writeRegister(0x12, 0x12); // the page stays, and the other one is written
    app.clear();
    board.release(1, 7);
    board.release(1, 9);
    expectShown("  │\n│ abc                       │\n│ ........................x │\n│ ^^^^^^^^^^^^^^^^^^^^^^^^^ │\n└");
    expectShown("\nLEDs ○ ○ ○ ● ○ ○ ○ ○   keys  0  [1]  2\n");
    EXPECT_TRUE(board.read(11) && board.lcdRegister(0xF0) == 0);
    board.releaseAll(8);
    EXPECT_TRUE(!board.read(11) && board.keyReads(1) == 2 && board.keyReads(0) == 0);
    EXPECT_THROW(board.press(3), std::out_of_range);
    board.makeOutput(52, false);
    board.makeOutput(52, true);
    expectShown("│                           │\n└───────────────────────────┘\ndisplay off");
    for (const unsigned dataThenSelectThenReadStrobe : {40U, 49U, 50U}) {
        board.makeOutput(dataThenSelectThenReadStrobe, false);
    }
    EXPECT_EQ(board.busFaults().back().kind, BusFault::Kind::Contention);
}

TEST(AppLog, PutsPiecesTogetherToLines)
{
    using Source = LogLine::Source;
    AppLog log;
    const std::string full(AppLog::longestLine, 'x');
    const struct {
        Source source;
        std::string text, lines; ///< those from the third one on
    } rows[] = {{Source::Simulator, "Ready\n\n", ""},
                {Source::Error, "Ready, Ready", "Ready, Ready..."},
                {Source::Output, "Ready\nRea", "Ready;Rea...Ready, Ready..."},
                {Source::Error, ", Ready\n", "Ready;Ready, Ready, Ready;Rea..."},
                {Source::Output, "dy\n" + full + "y\n", "Ready;Ready, Ready, Ready;Ready;" + full + ";y;"}};
    for (const auto& row : rows) {
        log.append(row.source, row.text);
        std::string lines;
        for (const LogLine& line : log.linesFrom(2).lines) {
            lines += line.text + (line.complete ? ";" : "...");
        }
        EXPECT_EQ(lines, row.lines);
    }
    for (std::size_t i = 0; i < AppLog::keptLines; ++i) {
        log.remark("remark");
    }
    EXPECT_TRUE(log.linesFrom(0).first == 7 && log.linesFrom(0).lines.size() == AppLog::keptLines);
}
