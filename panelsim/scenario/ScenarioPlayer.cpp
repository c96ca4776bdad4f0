#include "panelsim/scenario/ScenarioPlayer.h"

#include "panelsim/board/Duration.h"
#include "panelsim/board/Utf8.h"
#include "panelsim/scenario/Situation.h"

#include <chrono>
#include <system_error>

namespace panelsim {

namespace {

using Clock = std::chrono::steady_clock;
using Outcome = ScenarioResult::Outcome;

std::string say(const Step& step, const BoardConfig& board)
{
    return step.kind->say(step, board) + (step.waits ? " within " + describe(step.time) : "");
}

std::string endText(const AppState& app)
{
    return "the application has " + describe(app);
}

} // namespace

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
        const auto failure = play(scenario.steps[next]);
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
    const AppState app = simulation.app.get();
    if (isAction && app.hasEnded() && !app.succeeded() && !stage.endAccepted) {
        return fail(Outcome::ApplicationFailed, endText(app));
    }
    try {
        const auto objection = step.kind->play(step, stage);
        if (!objection) {
            ++next;
        } else if (!isAction && (isOver || app.hasEnded())) {
            return disappoint(step, *objection, app);
        }
        return std::nullopt;
    } catch (const std::system_error& e) {
        return fail(Outcome::FileError, printable(e.what()));
    }
}

ScenarioResult ScenarioPlayer::stop() const
{
    return fail(Outcome::Stopped, "stopped");
}

ScenarioResult ScenarioPlayer::fail(Outcome outcome, const std::string& text) const
{
    const Step& step = scenario.steps[next];
    const std::string place = ":" + std::to_string(step.fileLine) + ":" + std::to_string(step.fileColumn);
    const bool concernsPanel = outcome == Outcome::Failed || outcome == Outcome::ApplicationFailed;
    return {outcome, scenario.file + place + ": step " + std::to_string(next + 1) + ", " + step.name + ": " + text +
                         (concernsPanel ? "\n" + describeSituation(simulation) : "")};
}

ScenarioResult ScenarioPlayer::disappoint(const Step& step, const std::string& objection, const AppState& app) const
{
    const std::string expected = "expected " + say(step, simulation.board.getConfig()) + ", but ";
    if (!app.hasEnded() || stage.endAccepted) {
        return fail(Outcome::Failed, expected + objection);
    }
    if (app.succeeded()) {
        return fail(Outcome::Failed, expected + endText(app) + " and " + objection);
    }
    return fail(Outcome::ApplicationFailed, endText(app) + "; " + expected + objection);
}

} // namespace panelsim
