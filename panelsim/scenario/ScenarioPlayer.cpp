#include "panelsim/scenario/ScenarioPlayer.h"

#include "panelsim/board/Duration.h"
#include "panelsim/board/Utf8.h"
#include "panelsim/picture/PanelText.h"

#include <algorithm>
#include <chrono>
#include <system_error>
#include <vector>

namespace panelsim {

namespace {

using Clock = std::chrono::steady_clock;
using Outcome = ScenarioResult::Outcome;

constexpr std::size_t reportedLines = 10;

std::string say(const Step& step, const BoardConfig& board)
{
    return step.kind->say(step, board) + (step.waits ? " within " + describe(step.time) : "");
}

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

ScenarioPlayer::ScenarioPlayer(const Scenario& itsScenario, Simulation& itsSimulation)
    : scenario(itsScenario), simulation(itsSimulation), stage{itsSimulation}
{
    begin();
}

ScenarioPlayer::~ScenarioPlayer()
{
    simulation.board.releaseAll(Stage::hand);
}

void ScenarioPlayer::begin()
{
    const Step& step = scenario.steps[next];
    simulation.log.remark("step " + std::to_string(next + 1) + ": " + step.name + " " +
                          say(step, simulation.board.getConfig()));
    stage.begun = Clock::now();
    stage.phase = 0;
    stage.searched.reset();
}

std::optional<ScenarioResult> ScenarioPlayer::advance()
{
    while (next < scenario.steps.size()) {
        const std::size_t played = next;
        auto failure = play(scenario.steps[next]);
        if (failure || next == played) {
            return failure;
        }
        if (next < scenario.steps.size()) {
            begin();
        }
    }
    return ScenarioResult{Outcome::Passed, {}, stage.endAccepted};
}

std::optional<ScenarioResult> ScenarioPlayer::play(const Step& step)
{
    const bool isAction = step.kind->form == StepKind::Form::Action;
    // Before the look, so that it sees the last of the time and of the application.
    const bool isOver = !step.waits || Clock::now() >= stage.begun + step.time;
    const AppState app = simulation.app;
    const std::string end = "the application has " + describe(app);
    if (isAction && app.hasEnded() && !app.succeeded() && !stage.endAccepted) {
        return fail(Outcome::ApplicationFailed, end);
    }
    try {
        const auto objection = step.kind->play(step, stage);
        const std::string expected = "expected " + say(step, simulation.board.getConfig());
        if (!objection) {
            ++next;
        } else if (isAction || (!isOver && !app.hasEnded())) {
            return std::nullopt;
        } else if (!app.hasEnded() || stage.endAccepted) {
            return fail(Outcome::Failed, expected + ", but " + *objection);
        } else if (app.succeeded()) {
            return fail(Outcome::Failed, expected + ", but " + end + " and " + *objection);
        } else {
            return fail(Outcome::ApplicationFailed, end + "; " + expected + ", but " + *objection);
        }
    } catch (const std::system_error& e) {
        return fail(Outcome::FileError, printable(e.what()));
    }
    return std::nullopt;
}

ScenarioResult ScenarioPlayer::fail(Outcome outcome, const std::string& text) const
{
    const Step& step = scenario.steps[next];
    const std::string place = ":" + std::to_string(step.fileLine) + ":" + std::to_string(step.fileColumn);
    const bool concernsPanel = outcome == Outcome::Failed || outcome == Outcome::ApplicationFailed;
    return {outcome, scenario.file + place + ": step " + std::to_string(next + 1) + ", " + step.name + ": " + text +
                         (concernsPanel ? "\n" + describeSituation(simulation) : "")};
}

} // namespace panelsim
