#include "panelsim/web/PageState.h"

#include "panelsim/board/AppState.h"
#include "panelsim/board/BusFault.h"
#include "panelsim/picture/Glyph.h"
#include "panelsim/picture/PanelSvg.h"

#include <nlohmann/json.hpp>

namespace panelsim {

namespace {

using nlohmann::json;

/** The application's bytes need not be UTF-8. */
std::string toText(const json& value)
{
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

const char* phaseName(AppState::Phase phase)
{
    switch (phase) {
    case AppState::Phase::NotStarted:
        return "notStarted";
    case AppState::Phase::Running:
        return "running";
    case AppState::Phase::Exited:
        return "exited";
    case AppState::Phase::Killed:
        break;
    }
    return "killed";
}

const char* sourceName(LogLine::Source source)
{
    switch (source) {
    case LogLine::Source::Output:
        return "output";
    case LogLine::Source::Error:
        return "error";
    case LogLine::Source::Simulator:
        break;
    }
    return "simulator";
}

json lcdJson(const LcdView& lcd)
{
    json lines = json::array();
    json inverted = json::array();
    for (const auto& line : lcd.lines) {
        std::string text;
        std::string inversion;
        for (const LcdCell& cell : line) {
            text += glyph(cell.code);
            inversion += cell.inverted ? '1' : '0';
        }
        lines.push_back(text);
        inverted.push_back(inversion);
    }
    return {{"chip", lcd.chip == ChipVariant::Ra8803 ? "RA8803" : "RA8806"},
            {"identified", lcd.identified},
            {"displayOn", lcd.displayOn},
            {"backlight", lcd.backlight},
            {"contrast", lcd.contrast ? json(*lcd.contrast) : json()},
            {"lines", lines},
            {"inverted", inverted}};
}

json busFaultsJson(const Board& board)
{
    json first = json::array();
    for (const BusFault& fault : board.busFaults()) {
        first.push_back(describe(fault));
    }
    return {{"count", board.busFaultCount()}, {"first", first}};
}

} // namespace

std::string helloJson(HeldKeys::Hand client, const PageInfo& info, const BoardConfig& board)
{
    return toText({{"client", std::to_string(client)},
                   {"version", info.version},
                   {"panel", info.panel},
                   {"command", info.command},
                   {"keyCount", board.keyCount}});
}

std::string stateJson(const Simulation& simulation, bool restart)
{
    const AppState app = simulation.app.get();
    const PanelView view = simulation.board.view();
    return toText({{"app",
                    {{"phase", phaseName(app.phase)},
                     {"text", describe(app)},
                     {"succeeded", app.succeeded()},
                     {"restart", restart}}},
                   {"leds", view.leds},
                   {"keys", view.keys},
                   {"lcd", view.lcd ? lcdJson(*view.lcd) : json()},
                   {"svg", drawPanelSvg(simulation.board.getConfig(), view, SvgExtent::Face)},
                   {"busFaults", busFaultsJson(simulation.board)},
                   {"pinOperations", simulation.board.pinOperations() != 0}});
}

std::string logJson(const AppLog::Lines& lines)
{
    json texts = json::array();
    for (const LogLine& line : lines.lines) {
        texts.push_back({{"source", sourceName(line.source)}, {"text", line.text}});
    }
    return toText({{"first", lines.first}, {"lines", texts}});
}

} // namespace panelsim
