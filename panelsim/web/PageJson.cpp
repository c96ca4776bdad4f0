#include "panelsim/web/PageJson.h"

#include "panelsim/board/AppState.h"
#include "panelsim/board/BusFault.h"
#include "panelsim/picture/PanelSvg.h"

#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>

namespace panelsim {

namespace {

using nlohmann::json;

std::string toText(const json& value)
{
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string controllerText(const std::optional<LcdView>& lcd)
{
    if (!lcd) {
        return "none: this panel has no display";
    }
    return std::string(lcd->chip == ChipVariant::Ra8803 ? "RA8803" : "RA8806") +
           (lcd->identified ? " (identified by the application)" : " (not identified yet)");
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

std::string helloJson(HeldKeys::Hand page, const PageInfo& info, const BoardConfig& board)
{
    json keys = json::array();
    for (unsigned key = 0; key < board.keyCount; ++key) {
        keys.push_back((board.keyNames.empty() ? "Key " : "") + keyName(board, key));
    }
    static const auto run = std::chrono::system_clock::now().time_since_epoch().count();
    return toText({{"client", page},
                   {"run", std::to_string(run)},
                   {"version", info.version},
                   {"panel", info.panel},
                   {"command", info.command},
                   {"keys", keys}});
}

std::string stateJson(const Simulation& simulation, bool restart)
{
    const AppState app = simulation.app.get();
    const PanelView view = simulation.board.view();
    return toText({{"app",
                    {{"running", !app.hasEnded()},
                     {"text", describe(app)},
                     {"failed", app.hasEnded() && !app.succeeded()},
                     {"restart", restart}}},
                   {"keys", view.keys},
                   {"controller", controllerText(view.lcd)},
                   {"svg", drawPanelSvg(simulation.board.getConfig(), view, SvgExtent::Face)},
                   {"busFaults", view.lcd ? busFaultsJson(simulation.board) : json()},
                   {"pinOperations", simulation.board.pinOperations() != 0}});
}

std::string logJson(const AppLog::Lines& lines)
{
    json texts = json::array();
    for (const LogLine& line : lines.lines) {
        const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(line.time.time_since_epoch());
        const char* const source = line.source == LogLine::Source::Output  ? ""
                                   : line.source == LogLine::Source::Error ? "stderr"
                                                                           : "panelsim";
        texts.push_back({{"time", time.count()}, {"source", source}, {"text", line.text}});
    }
    return toText({{"first", lines.first}, {"lines", texts}});
}

} // namespace panelsim
