#include "panelsim/picture/PanelSvg.h"

#include <functional>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <string>

namespace {

using panelsim::drawPanelSvg;
using panelsim::PanelView;
using panelsim::SvgExtent;

PanelView indoorView()
{
    PanelView view;
    view.leds = {true, false};
    view.keys = {false, true};
    view.lcd.emplace();
    view.lcd->displayOn = true;
    view.lcd->contrast = 15;
    view.lcd->lines = {{{'<', false}, {'&', false}, {'>', true}, {0xE4, true}, {0x01, false}, {' ', false}}};
    return view;
}

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

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

TEST(PanelSvg, IsWellFormedWhateverThePanelHas)
{
    PanelView allCodes = indoorView();
    for (unsigned code = 0; code < 256; ++code) {
        allCodes.lcd->lines.front().push_back({static_cast<unsigned char>(code), code % 5 == 0});
    }
    allCodes.leds.resize(256);
    PanelView emptyLcd;
    emptyLcd.lcd.emplace();
    emptyLcd.lcd->displayOn = true;
    for (const PanelView& view : {PanelView(), emptyLcd, indoorView(), allCodes}) {
        const std::string svg = drawPanelSvg(panelsim::BoardConfig(), view, SvgExtent::Panel);
        EXPECT_EQ(withoutElements(svg), "\n");
        EXPECT_FALSE(std::regex_search(svg, std::regex(" (style|class|id|href|on[a-z]+)=")));
    }
}

TEST(PanelSvg, WritesWhatAPersonReads)
{
    const std::string svg = drawPanelSvg(panelsim::BoardConfig(), indoorView(), SvgExtent::Panel);
    EXPECT_TRUE(std::regex_search(svg, std::regex(">&lt;&amp;<tspan [^>]*>&gt;\u00E4</tspan>\u00B7 </text>"))) << svg;
    for (const char* text : {">on<", ">off<", ">pressed<", ">display on, backlight off, contrast 15/31<"}) {
        EXPECT_TRUE(contains(svg, text)) << text;
    }
    EXPECT_FALSE(contains(drawPanelSvg(panelsim::BoardConfig(), indoorView(), SvgExtent::Face), ">pressed<"));
    PanelView blank = indoorView();
    blank.lcd->displayOn = false;
    EXPECT_FALSE(contains(drawPanelSvg(panelsim::BoardConfig(), blank, SvgExtent::Face), "&amp;"));
}

TEST(PanelSvg, ShowsEachDifference)
{
    const std::function<void(PanelView&)> differences[] = {
        [](PanelView&) {},
        [](PanelView& view) { view.lcd.reset(); },
        [](PanelView& view) { view.lcd->displayOn = false; },
        [](PanelView& view) { view.lcd->backlight = true; },
        [](PanelView& view) { view.lcd->contrast = 3; },
        [](PanelView& view) { view.lcd->contrast = 31; },
        [](PanelView& view) { view.lcd->lines[0][0].inverted = true; },
        [](PanelView& view) { view.lcd->lines[0][0].code = 'x'; },
        [](PanelView& view) {
            view.leds = {true, true};
        },
        [](PanelView& view) {
            view.keys = {true, true};
        },
    };
    std::set<std::string> drawings;
    for (const auto& differ : differences) {
        PanelView view = indoorView();
        differ(view);
        // What is written below the glass differs anyway.
        const std::string svg = std::regex_replace(drawPanelSvg(panelsim::BoardConfig(), view, SvgExtent::Panel),
                                                   std::regex(">display[^<]*"), "");
        EXPECT_TRUE(drawings.insert(svg).second);
    }
}

} // namespace
