#include "panelsim/picture/PanelSvg.h"
#include "panelsim/picture/PanelText.h"
#include "panelsim/picture/VcdTrace.h"
#include "tests/panelsim/TestFolder.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
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

TEST(Picture, SaysWhatIsSeenAndIsTheSameByteForByte)
{
    const std::pair<std::function<void(Scene&)>, const char*> cases[] = {
        {[](Scene&) {}, "┌────────┐\n│ <&>ä·  │\n│   ^^   │\n│ b~··\u00A0c │\n│ ^ ^  ^ │\n└────────┘\n"
                        "display on, backlight off, contrast 15/31\nLEDs ● ○   keys  0  [1]\n"},
        {[](Scene&) {}, "│ <&\033[7m>ä\033[0m·  │\n"},
        {[](Scene&) {}, "contrast 15/31\nLine 1: &lt;&amp;&gt;ä· (inverted: 3 to 4)\nLine 2: b~··\u00A0c (inverted: 1 "
                        "to 1, 3 to 3, 6 to 6)\nLit LEDs: 0\nPressed keys: 1</desc>"},
        {[](Scene& s) { s.view = PanelView(); }, "This panel has no display\nLit LEDs: none</desc>"},
        {[](Scene& s) { s.view.lcd.reset(); }, "LEDs \033[32m●\033[0m ○   keys  0  [1]"},
        {[](Scene& s) { s.view.lcd->contrast = 0, s.view.leds.resize(33), s.view.keys.resize(7, true); },
         "4, 5, 6</desc>"},
        {[](Scene& s) { s.view.lcd->contrast = 31, s.view.leds.resize(32), s.view.keys.clear(); }, "31/31\n"},
        {[](Scene& s) { s.view.lcd->displayOn = false, s.view.lcd->backlight = true; }, "display off, backlight on"},
        {[](Scene& s) {
             s.config.keyNames = {"Up & down", "A name longer than its place"};
             s.config.ledNames = {"Power", "Übertemperatur im Raum"};
             s.config.ledColours = {"red", "green"};
             s.view.lcd->contrast.reset();
         },
         "off\nLEDs ● Power (red)  ○ Übertemperatur im Raum    keys  Up & down  [A name longer than its place]\n"},
    };
    std::uint32_t sum = 0; // of all that is drawn: most of a picture is in no row
    for (const auto& [differ, part] : cases) {
        Scene scene;
        differ(scene);
        std::string drawn;
        for (const bool flag : {false, true}) {
            drawn += drawPanelSvg(scene.config, scene.view, flag ? SvgExtent::Panel : SvgExtent::Face);
            drawn += drawPanel(scene.config, scene.view, flag ? TextStyle::Plain : TextStyle::Terminal);
        }
        EXPECT_NE(drawn.find(part), std::string::npos) << "no " << part << " in\n" << drawn;
        for (const unsigned char byte : drawn) {
            sum = sum * 16777619U + byte;
        }
    }
    EXPECT_EQ(sum, 2645097172U) << "are all pictures as they should be?";
}

TEST(VcdTrace, RecordsLevelsAndWhenTheyChange)
{
    const TestFolder folder;
    const auto path = folder.write("a.vcd", std::string(10000, 'x')); // from another time
    std::chrono::nanoseconds now = 1h;
    BoardConfig config;
    config.hasLcd = false;
    config.ledCount = config.keyCount = 1;
    Board board(config, [&] { return now; });
    VcdTrace trace(board, path);
    now += 5ns;
    board.makeOutput(20, true);
    board.makeOutput(10, false);
    board.press(0); // does not show on a line that is driven
    trace.flush();
    EXPECT_NE(folder.read("a.vcd").find("#5\n"), std::string::npos);
    now += 10us;
    board.makeInput(20);
    board.makeInput(10);
    now += 1ns;
    trace.close();
    board.release(0);
    std::string text = folder.read("a.vcd");
    std::replace(text.begin(), text.end(), '\n', ' ');
    EXPECT_EQ(
        text.substr(text.find("$timescale")),
        "$timescale 1 ns $end $scope module panel $end $scope module keys $end $var wire 1 g10 key0 $end $upscope "
        "$end $scope module leds $end $var wire 1 g20 led0 $end $upscope $end $scope module id $end $var wire 1 "
        "g4 id0 $end $var wire 1 g5 id1 $end $var wire 1 g6 id2 $end $var wire 1 g7 id3 $end $upscope $end "
        "$upscope $end $enddefinitions $end #0 1g4 1g5 1g6 1g7 0g10 zg20 #5 1g20 #10005 zg20 1g10 #10006 ");
    VcdTrace full(board, "/dev/full");
    board.press(0);
    EXPECT_THROW(full.close(), std::system_error);
}

} // namespace
