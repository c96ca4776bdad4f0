#include "panelsim/scenario/ScenarioPlayer.h"

#include "panelsim/board/Text.h"
#include "panelsim/picture/PanelText.h"

#include <algorithm>
#include <chrono>
#include <system_error>
#include <vector>

namespace panelsim {

namespace {

using Outcome = ScenarioResult::Outcome;

constexpr std::size_t reportedLines = 10;

} // namespace

std::string describeSituation(const Simulation& simulation)
{
    std::vector<LogLine> lines = simulation.log.linesFrom(0).lines;
    const auto isRemark = [](const LogLine& line) { return line.source == LogLine::Source::Simulator; };
    lines.erase(std::remove_if(lines.begin(), lines.end(), isRemark), lines.end());
    std::string text = lines.empty() ? "The application has written nothing." : "The last lines of the application:";
    for (std::size_t i = lines.size() - std::min(lines.size(), reportedLines); i < lines.size(); ++i) {
        text += "\n  " + printable(lines[i].text);
    }
    return "The panel shows:\n" + drawPanel(simulation.board.getConfig(), simulation.board.view(), TextStyle::Plain) +
           text;
}

ScenarioPlayer::ScenarioPlayer(const Scenario& itsScenario, Simulation& simulation)
    : scenario(itsScenario), stage{simulation}
{
    begin();
}

void ScenarioPlayer::begin()
{
    stage.simulation.log.remark("step " + std::to_string(next + 1) + ", " + scenario.steps[next].said);
    stage.begun = std::chrono::steady_clock::now();
    stage.phase = 0;
    stage.searched.reset();
}

std::optional<ScenarioResult> ScenarioPlayer::advance()
{
    while (true) {
        const Step& step = scenario.steps[next];
        const bool isAction = step.kind->form == StepKind::Form::Action;
        // Before the look, so that it sees the last of the time and of the application.
        const bool isOver = !step.waits || std::chrono::steady_clock::now() >= stage.begun + step.time;
        const AppState app = stage.simulation.app;
        const std::string end = "the application has " + describe(app);
        if (isAction && app.hasEnded() && !app.succeeded() && !stage.endAccepted) {
            return fail(Outcome::ApplicationFailed, end);
        }
        std::optional<std::string> objection;
        try {
            objection = step.kind->play(step, stage);
        } catch (const std::system_error& e) {
            return fail(Outcome::FileError, printable(e.what()));
        }
        if (objection && (isAction || (!isOver && !app.hasEnded()))) {
            return std::nullopt;
        }
        if (objection && app.hasEnded() && !stage.endAccepted) {
            return fail(app.succeeded() ? Outcome::Failed : Outcome::ApplicationFailed, end + "; " + *objection);
        }
        if (objection) {
            return fail(Outcome::Failed,
                        (step.waits && isOver ? "after " + describe(step.time) + ", " : "") + *objection);
        }
        if (++next == scenario.steps.size()) {
            return ScenarioResult{Outcome::Passed, {}, stage.endAccepted};
        }
        begin();
    }
}

ScenarioResult ScenarioPlayer::fail(Outcome outcome, const std::string& text) const
{
    const Step& step = scenario.steps[next];
    const bool concernsPanel = outcome == Outcome::Failed || outcome == Outcome::ApplicationFailed;
    return {outcome, step.place + ": step " + std::to_string(next + 1) + ", " + step.said + ": " + text +
                         (concernsPanel ? "\n" + describeSituation(stage.simulation) : "")};
}

} // namespace panelsim
