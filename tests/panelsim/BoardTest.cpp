#include "panelsim/board/Board.h"

#include "panelsim/board/AppLog.h"
#include "panelsim/board/Utf8.h"
#include "tests/panelsim/FakeApplication.h"

#include <gtest/gtest.h>

using namespace panelsim;
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
    void driveData(unsigned char byte, unsigned char driven)
    {
        levels.data = byte;
        levels.dataDriven = driven;
        bus.update(levels, now);
    }

    std::chrono::nanoseconds now{0};
    LcdLevels levels;
    LcdBus bus;
};

} // namespace

TEST(LcdBus, NoticesWhatAChipWouldSufferFrom)
{
    using Kind = BusFault::Kind;
    struct Case {
        const char* what;
        std::function<void(Bench&)> action;
        std::vector<Kind> faults;
        unsigned char taken; ///< into register 0, where the data lines would write 4
    };
    using Action = std::function<void(Bench&)>;
    const Action nothing = [](Bench&) {};
    const auto readStrobe = &LcdLevels::readStrobe;
    const auto writeStrobe = &LcdLevels::writeStrobe;
    const auto pulse = [](Bench::Line line, const Action& meanwhile) {
        return [=](Bench& b) { b.pulse(line, [&] { meanwhile(b); }); };
    };
    const auto access = [](Bench::Line line, const Action& meanwhile, std::chrono::nanoseconds width = 10us) {
        return [=](Bench& b) {
            b.strobe(
                line, [&] { meanwhile(b); }, width);
        };
    };
    const auto drive = [](Bench::Line line, bool level) { return [=](Bench& b) { b.drive(line, level); }; };
    const auto data = [](unsigned char byte, unsigned char driven) {
        return [=](Bench& b) { b.driveData(byte, driven); };
    };
    const auto both = [](const Action& first, const Action& second) { return [=](Bench& b) { first(b), second(b); }; };
    const Action write = access(writeStrobe, nothing);
    const Case cases[] = {
        {"nothing", write, {}, 4},
        {"data moved", access(writeStrobe, both(data(1, 255), data(3, 255))), {Kind::DataChanged}, 3},
        {"data released", both(data(4, 8), access(writeStrobe, data(4, 0))), {Kind::DataChanged}, 4},
        {"register select moved", access(readStrobe, drive(&LcdLevels::registerSelect, true)), {Kind::DataChanged}, 0},
        {"both strobes", access(writeStrobe, pulse(readStrobe, nothing)), {Kind::BothStrobes}, 0},
        {"short strobe", access(writeStrobe, nothing, 9999ns), {Kind::ShortStrobe}, 4},
        {"deselected", access(writeStrobe, drive(&LcdLevels::chipSelect, true)), {Kind::ChipSelectMoved}, 4},
        {"access during reset", pulse(&LcdLevels::reset, write), {Kind::AccessDuringReset}, 0},
        {"reset during access", access(writeStrobe, pulse(&LcdLevels::reset, nothing)), {Kind::AccessDuringReset}, 0},
        {"strobe before chip select", both(drive(writeStrobe, false), write), {Kind::ChipSelectMoved}, 4},
        {"strobe without chip select", pulse(writeStrobe, nothing), {}, 0},
        {"driven in the middle of a read", access(readStrobe, data(1, 1)), {Kind::Contention}, 0},
    };
    for (const Case& c : cases) {
        Bench bench(ChipVariant::Ra8806);
        bench.levels.data = 4;
        c.action(bench);
        std::vector<Kind> kinds;
        for (const BusFault& fault : bench.bus.faults()) {
            kinds.push_back(fault.kind);
        }
        EXPECT_EQ(kinds, c.faults) << c.what;
        EXPECT_EQ(bench.bus.faultCount(), c.faults.size());
        EXPECT_EQ(bench.bus.chip().registerValue(0), c.taken) << c.what;
        bench.bus.clearFaults();
        bench.write(true, 0x20);
        bench.write(false, 0x18);
        EXPECT_EQ(bench.read(false), 0x18U) << "works on after: " << c.what;
        EXPECT_EQ(bench.read(true), 0x40U) << "the status";
        EXPECT_TRUE(bench.bus.faults().empty() && bench.bus.faultCount() == 0);
    }
    Bench inReset(ChipVariant::Ra8803);
    inReset.pulse(&LcdLevels::reset, [&] { EXPECT_EQ(inReset.read(false), 0U); });
    EXPECT_EQ(inReset.read(false), LcdChip::ra8803Id);
    for (int i = 0; i < 200; ++i) {
        inReset.strobe(
            writeStrobe, [] {}, 0ns);
    }
    EXPECT_TRUE(inReset.bus.faultCount() == 201 && inReset.bus.faults().size() == 100) << "some are kept, all counted";
}

TEST(LcdChip, ShowsAPageOfItsMemory)
{
    Board board(FakeApplication::boardConfig());
    FakeApplication app(board);
    const auto shown = [&] {
        std::string codes;
        const PanelView view = board.view();
        for (const auto& line : view.lcd->lines) {
            for (const LcdCell& cell : line) {
                codes += cell.inverted ? '~' : static_cast<char>(cell.code);
            }
        }
        return codes;
    };
    const std::string blank(75, ' ');
    app.turnDisplayOn();
    EXPECT_EQ(shown(), "~\"#~%&~()~+,~./~12~45~78~mn~pq~st~vw~yz~\"#~%&~()~+_~ab~de~gh~jk~mn~pq~st~vw")
        << "memory at power-up";
    app.clear();
    app.show(1, "abc");
    app.show(2, std::string(24, '.') + "xyz", true);
    const std::string page = std::string(25, ' ') + "abc" + std::string(22, ' ') + std::string(25, '~');
    app.writeRegister(0x12, 0x12); // the first page stays, and the second is written
    app.clear();
    app.show(0, "z");
    const std::pair<unsigned char, std::string> pages[] = {
        {0x10, page}, {0x20, "z" + blank.substr(1)}, {0x30, page}, {0x00, blank}, {0x11, page}};
    for (const auto& [pageRegister, expected] : pages) {
        app.writeRegister(0x12, pageRegister);
        EXPECT_EQ(shown(), expected);
    }
    app.writeRegister(0x20, 1);
    app.writeRegister(0x30, 31);
    EXPECT_EQ(shown(), std::string(25, ' ') + "ab" + std::string(48, ' '));
    board.makeOutput(52, false);
    app.turnDisplayOn();
    EXPECT_EQ(board.busFaults().at(0).kind, BusFault::Kind::AccessDuringReset);
    board.makeOutput(52, true);
    EXPECT_FALSE(board.view().lcd->displayOn);
    EXPECT_EQ(board.lcdRegister(0x12), 0x11);
    app.turnDisplayOn();
    EXPECT_EQ(shown(), page) << "which a reset leaves alone";
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
    config.stuckLines.clear();
    Board mute{config};
    FakeApplication(mute).turnDisplayOn();
    EXPECT_FALSE(mute.view().lcd->displayOn);
    config.ledCount = 20;
    EXPECT_THROW(Board other(config), std::invalid_argument) << "overlaps the LCD";
}

TEST(Board, CountsHandsOnAKeyAndReadsOfIt)
{
    BoardConfig config;
    config.invertedLeds = {2};
    Board board{config};
    unsigned changes = 0;
    board.onChange([&] { ++changes; });
    board.press(1, 7);
    board.press(1, 8);
    board.release(1, 7);
    board.release(1, 9);
    EXPECT_TRUE(board.read(11) && board.read(11));
    EXPECT_EQ(board.view().keys, (std::vector<bool>{false, true, false}));
    board.release(1, 8);
    EXPECT_FALSE(board.read(11));
    EXPECT_EQ(board.keyReads(1), 3U);
    EXPECT_EQ(board.keyReads(0), 0U);
    EXPECT_EQ(changes, 4U) << "pressed, seen, released, seen";
    EXPECT_THROW(board.press(3), std::out_of_range);
    board.makeOutput(22, true);
    board.makeOutput(23, true);
    EXPECT_EQ(board.view().leds, (std::vector<bool>{false, false, false, true, false, false, false, false}));
    EXPECT_EQ(changes, 6U);
    for (const unsigned dataThenSelectThenReadStrobe : {40U, 49U, 50U}) {
        board.makeOutput(dataThenSelectThenReadStrobe, false);
    }
    EXPECT_EQ(board.busFaults().at(0).kind, BusFault::Kind::Contention);
    EXPECT_EQ(changes, 7U) << "a fault";
    EXPECT_FALSE(board.read(46)) << "the RA8806's register 0";
    board.clearBusFaults();
    EXPECT_EQ(board.busFaults().size() + board.busFaultCount(), 0U);
    EXPECT_EQ(changes, 8U);
}

TEST(AppLog, PutsPiecesTogetherToLinesAndKeepsTheLast)
{
    using Source = LogLine::Source;
    AppLog log;
    const auto text = [&](std::uint64_t number, std::size_t bytes = 9999) {
        const AppLog::Lines found = log.linesFrom(number, bytes);
        std::string lines = std::to_string(found.first) + ":";
        for (const auto& line : found.lines) {
            lines += " " + line.text + (line.complete ? ";" : "...");
        }
        return lines + (found.last ? "" : " more");
    };
    log.append(Source::Output, "one\ntw");
    log.append(Source::Error, "ERR");
    log.remark("remark");
    log.append(Source::Output, "o\n\n");
    EXPECT_EQ(text(0), "0: one; two; ERR... remark; ;");
    log.endLine(Source::Error);
    log.endLine(Source::Error);
    EXPECT_EQ(text(2), "2: ERR; remark; ;");
    EXPECT_EQ(text(9), "5:");
    EXPECT_EQ(text(0, 4), "0: one; two; more");
    EXPECT_LE(std::chrono::system_clock::now() - log.linesFrom(0).lines.back().time, 1min);
    log.append(Source::Output, "x");
    log.append(Source::Output, std::string(AppLog::longestLine - 1, 'x') + "y");
    EXPECT_EQ(log.linesFrom(5).lines.size(), 2U) << "a line that is too long";
    const auto append = [&](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            log.append(Source::Error, "e\n");
        }
    };
    append(20);
    EXPECT_EQ(text(6, 1), "6: y... more");
    append(1);
    EXPECT_EQ(text(6, 1), "6: y; more") << "overtaken by many";
    append(AppLog::keptLines - 23);
    EXPECT_EQ(text(0, 1), "5: " + std::string(AppLog::longestLine, 'x') + "; more");
    EXPECT_EQ(log.linesFrom(0).lines.size(), AppLog::keptLines);
}

TEST(AppLog, FindsTextAfterAPlaceButNotInRemarks)
{
    using Source = LogLine::Source;
    AppLog log;
    AppLog::Position position{};
    const std::pair<Source, const char*> pieces[] = {{Source::Simulator, "Ready\n"}, {Source::Error, "Ready, Ready"},
                                                     {Source::Output, "Ready\n"},    {Source::Error, ", Ready\n"},
                                                     {Source::Output, "Rea"},        {Source::Output, "dy\n\n"}};
    std::string found;
    for (const auto& [source, text] : pieces) {
        log.append(source, text);
        for (found += '|'; log.find("Ready", position);) {
            found += 'x';
        }
    }
    EXPECT_EQ(found, "||xx|x|x||x") << "each once, also in a line that goes on";
}

TEST(Utf8, MakesAnyBytesPrintable)
{
    const std::pair<const char*, const char*> cases[] = {
        {"a\x7F\x1F\xC2\x80\xC2\x9F\xC2\xA0\xC3\xBF", "a····\u00A0ÿ"},
        {"\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
         "\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
        {"\x80 \xC1\xBF", "\uFFFD \uFFFD\uFFFD"},
        {"\xE0\x9F\xBF", "\uFFFD\uFFFD\uFFFD"},
        {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},
        {"\xF0\x8F\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xF5\x80\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xC3(\xE2\x82", "\uFFFD(\uFFFD\uFFFD"}};
    for (const auto& [bytes, expected] : cases) {
        EXPECT_EQ(printable(bytes), expected);
    }
}
