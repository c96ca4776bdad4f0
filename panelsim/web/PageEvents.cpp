#include "panelsim/web/PageEvents.h"

#include "panelsim/picture/PanelSvg.h"

#include <chrono>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

namespace panelsim {

namespace {

using nlohmann::json;

/** @return an event of JSON text, which has no line ends of its own; what is not UTF-8 in it is replaced */
std::string event(const char* name, const json& value)
{
    const std::string text = value.dump(-1, ' ', false, json::error_handler_t::replace);
    return "event: " + std::string(name) + "\ndata: " + text + "\n\n";
}

std::string controllerText(const std::optional<LcdView>& lcd)
{
    if (!lcd) {
        return "none: this panel has no display";
    }
    return std::string(lcd->chip == ChipVariant::Ra8803 ? "RA8803" : "RA8806") +
           (lcd->identified ? " (identified by the application)" : " (not identified yet)");
}

/** @return a heading and the first faults */
std::vector<std::string> describeBus(const Board& board)
{
    const std::uint64_t count = board.busFaultCount();
    if (count == 0) {
        return {"\u2713 no bus faults"};
    }
    std::vector<std::string> texts = {"\u26A0 " + std::to_string(count) + (count == 1 ? " bus fault" : " bus faults")};
    for (const BusFault& fault : board.busFaults()) {
        texts.push_back(describe(fault));
    }
    if (count >= texts.size()) {
        texts.push_back("and " + std::to_string(count + 1 - texts.size()) + " more");
    }
    return texts;
}

} // namespace

std::string helloEvent(Board::Hand page, const std::string& command, const BoardConfig& board)
{
    json keys = json::array();
    for (unsigned key = 0; key < board.keyCount; ++key) {
        keys.push_back((board.keyNames.empty() ? "Key " : "") + keyName(board, key));
    }
    // Lines of the log have the same numbers as long as this is the same.
    static const auto run = std::chrono::system_clock::now().time_since_epoch().count();
    return event("hello", {{"client", page},
                           {"run", std::to_string(run)},
                           {"version", PANELSIM_VERSION},
                           {"panel", board.panel},
                           {"command", command},
                           {"keys", keys}});
}

std::string stateEvent(const Simulation& simulation, bool restart)
{
    const AppState& app = simulation.app;
    const PanelView view = simulation.board.view();
    const bool untouched = app.phase == AppState::Phase::Running && simulation.board.pinOperations() == 0;
    const char* const hint = untouched ? ". It has not used any pin yet. An application that never does may not be "
                                         "linked with the shared GPIO library."
                                       : "";
    return event("state", {{"app",
                            {{"running", !app.hasEnded()},
                             {"text", describe(app)},
                             {"hint", hint},
                             {"failed", app.hasEnded() && !app.succeeded()},
                             {"restart", restart}}},
                           {"keys", view.keys},
                           {"controller", controllerText(view.lcd)},
                           {"svg", drawPanelSvg(simulation.board.getConfig(), view, SvgExtent::Face)},
                           {"bus", view.lcd ? describeBus(simulation.board) : std::vector<std::string>()},
                           {"hasBusFaults", simulation.board.busFaultCount() != 0}});
}

std::string logEvent(const AppLog::Lines& lines)
{
    json texts = json::array();
    for (const LogLine& line : lines.lines) {
        const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(line.time.time_since_epoch());
        const char* const source = line.source == LogLine::Source::Output  ? ""
                                   : line.source == LogLine::Source::Error ? "stderr"
                                                                           : "panelsim";
        texts.push_back({{"time", time.count()}, {"source", source}, {"text", line.text}});
    }
    return event("log", {{"first", lines.first}, {"lines", texts}});
}

std::string aliveEvent()
{
    return event("alive", nullptr);
}

} // namespace panelsim
