#include "panelsim/scenario/Situation.h"

#include "panelsim/board/Utf8.h"
#include "panelsim/picture/PanelText.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace panelsim {

namespace {

constexpr std::size_t reportedLines = 10;

std::string drawLog(const AppLog& log)
{
    std::vector<LogLine> lines = log.linesFrom(0).lines;
    const auto isRemark = [](const LogLine& line) { return line.source == LogLine::Source::Simulator; };
    lines.erase(std::remove_if(lines.begin(), lines.end(), isRemark), lines.end());
    if (lines.empty()) {
        return "The application has written nothing.";
    }
    std::string text = "The last lines of the application:";
    for (std::size_t i = lines.size() - std::min(lines.size(), reportedLines); i < lines.size(); ++i) {
        text += "\n  " + printable(lines[i].text);
    }
    return text;
}

} // namespace

std::string describeSituation(const Simulation& simulation)
{
    return "The panel shows:\n" + drawPanel(simulation.board.getConfig(), simulation.board.view(), TextStyle::Plain) +
           drawLog(simulation.log);
}

} // namespace panelsim
