#include "panelsim/picture/PanelSvg.h"
#include "panelsim/picture/PanelText.h"
#include "panelsim/picture/VcdTrace.h"
#include "tests/panelsim/FakeApplication.h"
#include "tests/panelsim/TestFolder.h"

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>

namespace {

using namespace panelsim;
using namespace std::chrono_literals;

/** What a drawing is made from. */
struct Scene {
    BoardConfig config = {};
    PanelView view = {{true, false},
                      {false, true},
                      LcdView{ChipVariant::Ra8806,
                              false,
                              true,
                              false,
                              15,
                              {{{'<', false}, {'&', false}, {'>', true}, {0xE4, true}, {0x01, false}, {' ', false}},
                               {{'b', true}, {'~', false}, {0x7F, true}, {0x9F, false}, {0xA0, false}, {'c', true}}}}};
};

std::uint32_t checksum(const std::string& text)
{
    std::uint32_t sum = 2166136261U;
    for (const unsigned char byte : text) {
        sum = (sum ^ byte) * 16777619U;
    }
    return sum;
}

TEST(Picture, IsTheSameByteForByte)
{
    const std::pair<std::function<void(Scene&)>, std::uint32_t> cases[] = {
        {[](Scene&) {}, 3939627252},
        {[](Scene& s) { s.view = PanelView(); }, 3514063497},
        {[](Scene& s) { s.view.lcd.reset(); }, 249979198},
        {[](Scene& s) { s.view.lcd->lines.clear(); }, 3740209982},
        {[](Scene& s) { s.view.lcd->displayOn = false; }, 824821044},
        {[](Scene& s) { s.view.lcd->backlight = true; }, 3081896186},
        {[](Scene& s) { s.view.lcd->contrast = 0; }, 2139384466},
        {[](Scene& s) { s.view.lcd->contrast = 31; }, 3021070160},
        {[](Scene& s) { s.view.lcd->contrast.reset(); }, 283052294},
        {[](Scene& s) { s.view.lcd->lines.assign(2, std::vector<LcdCell>(40)); }, 2320057727},
        {[](Scene& s) { s.view.leds.resize(33), s.view.keys.resize(7, true); }, 2100752200},
        {[](Scene& s) { s.view.leds.resize(32), s.view.keys.clear(); }, 4245119252},
        {[](Scene& s) {
             s.config.keyNames = {"Up & down", "A name longer than its place"};
             s.config.ledNames = {"Power", "Übertemperatur im Raum"};
             s.config.ledColours = {"red", "green"};
             s.view.leds[1] = true;
         },
         2184378307},
    };
    for (const auto& [differ, sum] : cases) {
        Scene scene;
        differ(scene);
        std::string drawn;
        for (const SvgExtent extent : {SvgExtent::Panel, SvgExtent::Face}) {
            drawn += drawPanelSvg(scene.config, scene.view, extent);
        }
        for (const TextStyle style : {TextStyle::Plain, TextStyle::Terminal}) {
            drawn += drawPanel(scene.config, scene.view, style);
        }
        EXPECT_EQ(checksum(drawn), sum) << "is this as it should be?\n" << drawn;
    }
    Scene scene;
    EXPECT_EQ(drawPanel(scene.config, scene.view, TextStyle::Plain),
              "┌────────┐\n│ <&>ä·  │\n│   ^^   │\n│ b~··\u00A0c │\n│ ^ ^  ^ │\n└────────┘\n"
              "display on, backlight off, contrast 15/31\nLEDs ● ○   keys  0  [1]\n");
    const std::string svg = drawPanelSvg(scene.config, scene.view, SvgExtent::Panel);
    EXPECT_NE(svg.find("<desc>display on, backlight off, contrast 15/31\n"
                       "Line 1: &lt;&amp;&gt;ä· (inverted: 3 to 4)\nLine 2: b~··\u00A0c (inverted: 1 to 1, 3 to 3, 6 "
                       "to 6)\nLit LEDs: 0\nPressed keys: 1</desc>"),
              std::string::npos)
        << svg;
}

class VcdTraceTest : public testing::Test {
protected:
    VcdTraceTest() { config.ledCount = config.keyCount = 1; }

    /** Lets LED 0 blink, at each nanosecond. */
    void blink(Board& board, unsigned times)
    {
        for (unsigned i = 0; i < times; ++i) {
            ++now;
            board.makeOutput(config.ledGpioBase, i % 2 == 0);
        }
    }
    static std::string failureOf(VcdTrace& trace, int error)
    {
        try {
            trace.close();
        } catch (const std::system_error& e) {
            EXPECT_EQ(e.code().value(), error);
            return e.what();
        }
        return "none";
    }

    TestFolder folder;
    BoardConfig config;
    std::chrono::nanoseconds now = 1h;
    const Board::Clock clock = [this] { return now; };
    const std::filesystem::path path = folder.path("a.vcd");
};

TEST_F(VcdTraceTest, RecordsLevelsAndWhenTheyChange)
{
    folder.write("a.vcd", std::string(10000, 'x')); // from another time
    config.chip = ChipVariant::Ra8803;
    Board board(config, clock);
    VcdTrace trace(board, path);
    now += 5ns;
    board.press(0);
    board.makeOutput(20, true);
    now += 2ns;
    board.makeOutput(10, true);
    board.release(0); // does not show on a line that is driven
    board.makeOutput(49, false);
    now += 3ns;
    board.makeOutput(50, false); // the chip answers 0xC9
    now += 10us;
    board.makeOutput(50, true);
    now += 10ns;
    trace.close();
    board.press(0);
    const std::string text = folder.read("a.vcd");
    EXPECT_EQ(text.find("$version panelsim "), 0U);
    const auto changes = text.find("#0\n");
    EXPECT_EQ(checksum(text.substr(text.find("$timescale"), changes - text.find("$timescale"))), 1058703550) << text;
    EXPECT_EQ(text.substr(changes),
              "#0\n$dumpvars\n11\n12\n13\n14\n0/\nz0\nz.\nz!\nz\"\nz#\nz$\nz%\nz&\nz'\nz(\nz)\n"
              "1*\n1+\n1,\n1-\n$end\n#5\n1/\n10\n#7\n0*\n#10\n0+\n1!\n0\"\n0#\n1$\n0%\n0&\n1'\n1(\n"
              "#10010\n1+\nz!\nz\"\nz#\nz$\nz%\nz&\nz'\nz(\n#10020\n");
}

TEST_F(VcdTraceTest, ReachesTheFileWhileItGoesOn)
{
    config = boardOf(panelKind("outdoor"));
    config.ledCount = 100;
    Board board(config, clock);
    VcdTrace trace(board, path);
    blink(board, 1000);
    trace.flush();
    EXPECT_NE(folder.read("a.vcd").find("panel $end\n$scope module keys $end\n"), std::string::npos) << "no LCD";
    EXPECT_NE(folder.read("a.vcd").find("$var wire 1 ~ led91 $end\n$var wire 1 !\" led92 $end\n"), std::string::npos);
    EXPECT_NE(folder.read("a.vcd").find("#999\n1#\n#1000\n0#\n"), std::string::npos);
    for (int i = 0; i < 1000 && folder.read("a.vcd").find("#1500") == std::string::npos; ++i) {
        blink(board, 100);
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_NE(folder.read("a.vcd").find("#1500"), std::string::npos) << "while lines change, without flush";
}

TEST_F(VcdTraceTest, SaysWhatCouldNotBeWrittenAndLetsTheBoardGoOn)
{
    Board board(config, clock);
    EXPECT_THROW(VcdTrace(board, path / "none"), std::system_error);
    VcdTrace full(board, "/dev/full");
    blink(board, 2);
    EXPECT_EQ(failureOf(full, ENOSPC), "cannot write /dev/full: No space left on device");
    EXPECT_EQ(failureOf(full, ENOSPC), "none") << "reported once";
    mkfifo(path.c_str(), 0600);
    EXPECT_THROW(VcdTrace(board, path), std::system_error) << "nobody reads it";
    const FileDescriptor reader(open(path.c_str(), O_RDONLY | O_NONBLOCK), "pipe");
    VcdTrace stalled(board, path);
    blink(board, 20000);
    EXPECT_EQ(failureOf(stalled, ETIMEDOUT), "cannot write " + path.string() + ": Connection timed out");
    EXPECT_EQ(board.lineLevel(config.ledGpioBase), LineLevel::Low);
}

} // namespace
