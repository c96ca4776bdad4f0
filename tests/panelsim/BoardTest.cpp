#include "panelsim/board/Board.h"

#include "panelsim/board/AppLog.h"
#include "panelsim/board/Text.h"
#include "tests/panelsim/FakeApplication.h"

#include <gtest/gtest.h>

using namespace panelsim;
using namespace std::chrono_literals;

namespace {

/** The bus by hand, with a clock that stands still but for strobes. */
struct Bench {
    /**
     * A letter is a line that goes low, or high when it is upper case: a register select, s chip select, r and w
     * strobes, z reset. A digit is the level of the data lines, d or x that they are driven or released, + or - that
     * the shortest strobe or less passes, g that the byte that the chip drives is read.
     */
    void run(const std::string& script)
    {
        const std::map<char, bool LcdLevels::*> lines = {{'a', &LcdLevels::registerSelect},
                                                         {'s', &LcdLevels::chipSelect},
                                                         {'r', &LcdLevels::readStrobe},
                                                         {'w', &LcdLevels::writeStrobe},
                                                         {'z', &LcdLevels::reset}};
        for (const char c : script) {
            if (const auto line = lines.find(static_cast<char>(std::tolower(c))); line != lines.end()) {
                levels.*line->second = c != line->first;
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

} // namespace

TEST(LcdBus, NoticesWhatAChipWouldSufferFrom)
{
    using Kind = BusFault::Kind;
    const struct {
        const char* what;
        const char* script;
        std::vector<Kind> faults;
        unsigned char taken; ///< into register 0
    } cases[] = {
        {"nothing", "4dsw+WS", {}, 4},
        {"data moved", "4dsw+13WS", {Kind::DataChanged}, 3},
        {"data released", "4dsw+xWS", {Kind::DataChanged}, 4},
        {"register select moved", "4sr+ARS", {Kind::DataChanged}, 0},
        {"both strobes", "4dsw+rRWS", {Kind::BothStrobes}, 0},
        {"short strobe", "4dsw-WS", {Kind::ShortStrobe}, 4},
        {"deselected", "4dsw+SWS", {Kind::ChipSelectMoved}, 4},
        {"access during reset", "4dzsw+WSZ", {Kind::AccessDuringReset}, 0},
        {"reset during access", "4dsw+zZWS", {Kind::AccessDuringReset}, 0},
        {"strobe before chip select", "4dws+WS", {Kind::ChipSelectMoved}, 4},
        {"strobe without chip select", "4dw+W", {}, 0},
        {"driven in the middle of a read", "4sr+dRS", {Kind::Contention}, 0},
    };
    for (const auto& c : cases) {
        Bench bench{LcdBus(ChipVariant::Ra8806, 10us)};
        bench.run(c.script);
        std::vector<Kind> kinds;
        for (const BusFault& fault : bench.bus.faults()) {
            kinds.push_back(fault.kind);
        }
        EXPECT_EQ(kinds, c.faults) << c.what;
        EXPECT_EQ(bench.bus.faultCount(), c.faults.size());
        EXPECT_EQ(bench.bus.chip().registerValue(0), c.taken) << c.what;
        bench.bus.clearFaults();
        bench.run("5dAsw+WS6asw+WSxsr+gRgSAsr+gRS");
        EXPECT_EQ(bench.read, (std::vector<int>{6, -1, 0x40})) << "works on after: " << c.what;
        EXPECT_TRUE(bench.bus.faults().empty() && bench.bus.faultCount() == 0);
    }
    Bench inReset{LcdBus(ChipVariant::Ra8803, 10us)};
    inReset.run("zsr+gRSZsr+gRS");
    EXPECT_EQ(inReset.read, (std::vector<int>{-1, LcdChip::ra8803Id}));
    for (int i = 0; i < 200; ++i) {
        inReset.run("swWS");
    }
    EXPECT_TRUE(inReset.bus.faultCount() == 201 && inReset.bus.faults().size() == 100) << "some are kept, all counted";
}

TEST(LcdChip, ShowsAPageOfItsMemory)
{
    Board board(FakeApplication::boardConfig());
    FakeApplication app(board);
    const auto shown = [&](int pageRegister = -1) {
        if (pageRegister >= 0) {
            app.writeRegister(0x12, static_cast<unsigned char>(pageRegister));
        }
        std::string codes;
        const PanelView view = board.view();
        for (const auto& line : view.lcd->lines) {
            for (const LcdCell& cell : line) {
                codes += cell.inverted ? '~' : static_cast<char>(cell.code);
            }
        }
        return codes;
    };
    app.turnDisplayOn();
    EXPECT_EQ(shown(), "~\"#~%&~()~+,~./~12~45~78~mn~pq~st~vw~yz~\"#~%&~()~+_~ab~de~gh~jk~mn~pq~st~vw")
        << "memory at power-up";
    app.clear();
    app.show(1, "abc");
    app.show(2, std::string(24, '.') + "xyz", true);
    const std::string page = std::string(25, ' ') + "abc" + std::string(22, ' ') + std::string(25, '~');
    shown(0x12); // the first page stays, and the second is written
    app.clear();
    app.show(0, "z");
    std::string pages;
    for (const int pageRegister : {0x10, 0x20, 0x30, 0x00, 0x11}) {
        pages += shown(pageRegister);
    }
    EXPECT_EQ(pages, page + "z" + std::string(74, ' ') + page + std::string(75, ' ') + page);
    app.writeRegister(0x20, 1);
    app.writeRegister(0x30, 31);
    EXPECT_EQ(shown(), std::string(25, ' ') + "ab" + std::string(48, ' '));
    board.makeOutput(52, false);
    board.makeOutput(52, true);
    EXPECT_FALSE(board.view().lcd->displayOn);
    app.turnDisplayOn();
    EXPECT_EQ(shown(), page) << "which a reset leaves alone";
}

TEST(Board, HasHandsOnItsKeysStuckLinesAndSilentChips)
{
    BoardConfig config;
    Board board{config};
    for (const unsigned hand : {7U, 8U}) {
        board.press(1, hand);
    }
    board.release(1, 7);
    board.release(1, 9);
    EXPECT_TRUE(board.read(11) && board.read(11));
    EXPECT_EQ(board.view().keys, (std::vector<bool>{false, true, false}));
    board.releaseAll(8);
    EXPECT_FALSE(board.read(11));
    EXPECT_TRUE(board.keyReads(1) == 3 && board.keyReads(0) == 0);
    EXPECT_THROW(board.press(3), std::out_of_range);
    for (const unsigned dataThenSelectThenReadStrobe : {40U, 49U, 50U}) {
        board.makeOutput(dataThenSelectThenReadStrobe, false);
    }
    EXPECT_EQ(board.busFaults().at(0).kind, BusFault::Kind::Contention);
    EXPECT_FALSE(board.read(46)) << "the RA8806's register 0";

    config.stuckLines = {{10, true}, {20, true}, {28, false}, {47, true}, {50, false}};
    config.silentChip = true;
    Board stuck{config};
    stuck.makeOutput(28, true);
    EXPECT_TRUE(stuck.read(10) && stuck.view().leds[0]);
    EXPECT_FALSE(stuck.view().lcd->backlight) << "driven in vain";
    stuck.makeOutput(49, false); // chip select, with the read strobe stuck low
    EXPECT_TRUE(stuck.read(47) && !stuck.read(46) && !stuck.view().lcd->identified);
    EXPECT_EQ(stuck.busFaults().at(0).kind, BusFault::Kind::ChipSelectMoved);
    config.stuckLines.clear();
    Board mute{config};
    FakeApplication(mute).turnDisplayOn();
    EXPECT_FALSE(mute.view().lcd->displayOn);
    config.stuckLines = {{99, true}};
    EXPECT_THROW(Board other(config), std::invalid_argument);
    config = BoardConfig();
    config.ledCount = 20;
    EXPECT_THROW(Board other(config), std::invalid_argument) << "overlaps the LCD";
}

TEST(AppLog, PutsPiecesTogetherToLinesAndFindsText)
{
    using Source = LogLine::Source;
    AppLog log;
    AppLog::Position position{};
    const struct {
        Source source;
        std::string text, lines;
        unsigned found; ///< how often the text is found that was not before
    } rows[] = {{Source::Simulator, "Ready\n", "0: Ready;", 0},
                {Source::Error, "Ready, Ready", "0: Ready; Ready, Ready...", 2},
                {Source::Output, "Ready\n", "0: Ready; Ready; Ready, Ready...", 1},
                {Source::Output, "Rea", "0: Ready; Ready; Ready, Ready... Rea...", 0},
                {Source::Error, ", Ready\n", "0: Ready; Ready; Ready, Ready, Ready; Rea...", 1},
                {Source::Output, "dy\n\n", "0: Ready; Ready; Ready, Ready, Ready; Ready; ;", 1},
                {Source::Output, std::string(AppLog::longestLine, 'x'), "5: " + std::string(1024, 'x') + "...", 0},
                {Source::Output, "y", "5: " + std::string(1024, 'x') + "; y...", 0}};
    for (const auto& row : rows) {
        log.append(row.source, row.text);
        const AppLog::Lines kept = log.linesFrom(row.lines[0] == '0' ? 0 : 5);
        std::string lines = std::to_string(kept.first) + ":";
        for (const LogLine& line : kept.lines) {
            lines += " " + line.text + (line.complete ? ";" : "...");
        }
        EXPECT_EQ(lines, row.lines);
        for (unsigned i = 0; i < row.found; ++i) {
            EXPECT_TRUE(log.find("Ready", position)) << row.lines;
        }
        EXPECT_FALSE(log.find("Ready", position)) << row.lines;
    }
    log.endLine(Source::Output);
    EXPECT_TRUE(log.linesFrom(6).lines.at(0).complete && log.linesFrom(9).first == 7);
    EXPECT_TRUE(log.linesFrom(0, 6).lines.size() == 2 && !log.linesFrom(0, 6).last);
    EXPECT_LE(std::chrono::system_clock::now() - log.linesFrom(0).lines.back().time, 1min);
    for (std::size_t i = 0; i < AppLog::keptLines; ++i) {
        log.remark("remark");
    }
    EXPECT_TRUE(log.linesFrom(0).first == 7 && log.linesFrom(0).lines.size() == AppLog::keptLines);
}

TEST(Utf8, MakesAnyBytesPrintable)
{
    const std::string text = "\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
    EXPECT_EQ(printable(text + "a\x7F\x1F\xC2\x80\xC2\x9F\xC2\xA0\xC3\xBF"), text + "a····\u00A0ÿ");
    for (const char* const bytes : {"\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\x80\x80",
                                    "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xE2\x82"}) {
        std::string replaced;
        for (const char* each = bytes; *each != '\0'; ++each) {
            replaced += "\uFFFD";
        }
        EXPECT_EQ(printable(bytes + std::string("(")), replaced + "(");
    }
}
