#include "panelsim/web/PageState.h"

#include "tests/panelsim/scenario/FakeApplication.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using namespace panelsim;
using nlohmann::json;

TEST(PageState, TellsWhatTheLcdShows)
{
    BoardConfig config;
    config.chip = ChipVariant::Ra8803;
    config.shortestStrobe = std::chrono::hours(1);
    Simulation simulation(config);
    FakeApplication app(simulation);
    app.turnDisplayOn();
    app.setContrast(31);
    app.show(0, "A\xFC");
    app.show(1, "\x07", true);
    const json state = json::parse(stateJson(simulation, false));
    const std::string blank(25, ' ');
    EXPECT_EQ(state.at("lcd"),
              json({{"chip", "RA8803"},
                    {"identified", false},
                    {"displayOn", true},
                    {"backlight", false},
                    {"contrast", 31},
                    {"lines", {"A\u00FC" + blank.substr(2), "\u00B7" + blank.substr(1), blank}},
                    {"inverted", {std::string(25, '0'), "1" + std::string(24, '0'), std::string(25, '0')}}}));
    EXPECT_EQ(state.at("busFaults").at("count"), 25);
    EXPECT_EQ(state.at("busFaults").at("first").at(0), describe(simulation.board.busFaults().front()));
    EXPECT_TRUE(json::parse(stateJson(Simulation(boardOf(panelKind("outdoor"))), true)).at("lcd").is_null());
}

} // namespace
