#include "panelsim/picture/PanelSvg.h"
#include "panelsim/picture/PanelText.h"

#include <functional>
#include <gtest/gtest.h>

using namespace panelsim;

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
        {[](Scene& s) { s.view.leds.resize(33), s.view.keys.resize(7, true); }, "4, 5, 6</desc>"},
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
    EXPECT_EQ(sum, 1146337113U) << "are all pictures as they should be?";
}
