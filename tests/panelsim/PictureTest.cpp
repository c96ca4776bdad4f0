#include "panelsim/picture/PanelSvg.h"
#include "panelsim/picture/PanelText.h"
#include "panelsim/picture/VcdTrace.h"
#include "tests/panelsim/FakeApplication.h"
#include "tests/panelsim/TestFolder.h"

#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <system_error>

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
}

TEST(VcdTrace, RecordsLevelsAndWhenTheyChange)
{
    const TestFolder folder;
    const auto path = folder.write("a.vcd", std::string(10000, 'x')); // from another time
    std::chrono::nanoseconds now = 1h;
    BoardConfig config;
    config.ledCount = 100;
    config.ledGpioBase = 60;
    config.keyCount = 1;
    config.chip = ChipVariant::Ra8803;
    Board board(config, [&] { return now; });
    VcdTrace trace(board, path);
    now += 5ns;
    board.press(0);
    board.makeOutput(60, true);
    now += 2ns;
    board.makeOutput(10, true);
    board.release(0); // does not show on a line that is driven
    board.makeOutput(49, false);
    trace.flush();
    EXPECT_NE(folder.read("a.vcd").find("#7\n"), std::string::npos);
    now += 3ns;
    board.makeOutput(50, false); // the chip answers 0xC9
    now += 10us;
    board.makeOutput(50, true);
    now += 10ns;
    trace.close();
    board.press(0);
    const std::string text = folder.read("a.vcd");
    EXPECT_EQ(checksum(text.substr(text.find("$timescale"))), 286623540) << text;
}

TEST(VcdTrace, SaysWhatCouldNotBeWrittenAndLetsTheBoardGoOn)
{
    const TestFolder folder;
    const auto path = folder.path("pipe");
    Board board{BoardConfig()};
    const auto failureOf = [&](const std::filesystem::path& file) -> std::string {
        try {
            VcdTrace trace(board, file);
            for (unsigned i = 0; i < 20000; ++i) {
                board.makeOutput(20, i % 2 == 0);
            }
            trace.close();
            return "none";
        } catch (const std::system_error& error) {
            return error.what();
        }
    };
    EXPECT_EQ(failureOf("/dev/full"), "cannot write /dev/full: No space left on device");
    mkfifo(path.c_str(), 0600);
    EXPECT_EQ(failureOf(path), "cannot open " + path.string() + ": No such device or address") << "nobody reads it";
    const FileDescriptor reader(open(path.c_str(), O_RDONLY | O_NONBLOCK), "pipe");
    EXPECT_EQ(failureOf(path), "cannot write " + path.string() + ": Connection timed out");
    EXPECT_EQ(board.lineLevel(20), LineLevel::Low);
}

} // namespace
