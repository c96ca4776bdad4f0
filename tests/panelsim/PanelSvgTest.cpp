#include "panelsim/picture/PanelSvg.h"

#include <functional>
#include <gtest/gtest.h>
#include <regex>
#include <set>

namespace {

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
                              {{{'<', false}, {'&', false}, {'>', true}, {0xE4, true}, {0x01, false}, {' ', false}}}}};

    std::string draw(SvgExtent extent = SvgExtent::Panel) const { return drawPanelSvg(config, view, extent); }
};

/** @return what is left when well-formed elements are taken away from the inside out */
std::string withoutElements(const std::string& svg)
{
    const std::string attributes = R"re((?: [a-zA-Z:-]+="[^"<&]*")*)re";
    const std::regex element("<([a-z]+)" + attributes + "(?:/>|>(?:[^<>&]|&(?:amp|lt|gt);)*</\\1>)");
    std::string before;
    std::string rest = svg;
    while (rest != before) {
        before = rest;
        rest = std::regex_replace(rest, element, "");
    }
    return rest;
}

TEST(PanelSvg, IsWellFormedAndShowsEachDifference)
{
    const std::function<void(Scene&)> differences[] = {
        [](Scene&) {},
        [](Scene& scene) { scene.view = PanelView(); },
        [](Scene& scene) { scene.view.lcd.reset(); },
        [](Scene& scene) { scene.view.lcd->lines.clear(); },
        [](Scene& scene) { scene.view.lcd->displayOn = false; },
        [](Scene& scene) { scene.view.lcd->backlight = true; },
        [](Scene& scene) { scene.view.lcd->contrast = 3; },
        [](Scene& scene) { scene.view.lcd->contrast = 31; },
        [](Scene& scene) { scene.view.lcd->lines[0][0].inverted = true; },
        [](Scene& scene) { scene.view.lcd->lines[0][0].code = 'x'; },
        [](Scene& scene) { scene.view.leds[1] = true; },
        [](Scene& scene) { scene.view.leds.resize(256); },
        [](Scene& scene) { scene.view.keys[0] = true; },
        [](Scene& scene) {
            scene.config.keyNames = {"Up & down", "<"};
        },
        [](Scene& scene) {
            scene.config.ledNames = {"Power", "A name longer than its place"};
        },
        [](Scene& scene) {
            scene.config.ledColours = {"red", "green"};
        },
    };
    std::set<std::string> drawings;
    for (const auto& differ : differences) {
        Scene scene;
        differ(scene);
        const std::string svg = scene.draw();
        EXPECT_EQ(withoutElements(svg), "\n");
        EXPECT_FALSE(std::regex_search(svg, std::regex(" (style|class|id|href|on[a-z]+)=")));
        // The words differ anyway.
        EXPECT_TRUE(drawings.insert(std::regex_replace(svg, std::regex(">display[^<]*"), "")).second) << svg;
    }
}

TEST(PanelSvg, SaysInWordsWhatIsSeen)
{
    Scene scene;
    EXPECT_TRUE(std::regex_search(scene.draw(), std::regex(">&lt;&amp;<tspan [^>]*>&gt;\u00E4</tspan>\u00B7 </text>")));
    const std::string description =
        "<desc>display on, backlight off, contrast 15/31\nLine 1: &lt;&amp;&gt;\u00E4\u00B7 (inverted: 3 to 4)\n";
    EXPECT_NE(scene.draw().find(description + "Lit LEDs: 0\nPressed keys: 1</desc>"), std::string::npos);
    EXPECT_NE(scene.draw(SvgExtent::Face).find(description + "Lit LEDs: 0</desc>"), std::string::npos);
    EXPECT_EQ(scene.draw(SvgExtent::Face).find("pressed"), std::string::npos);
}

} // namespace
