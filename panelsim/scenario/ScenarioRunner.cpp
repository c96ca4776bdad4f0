#include "panelsim/scenario/ScenarioRunner.h"

#include "panelsim/scenario/Situation.h"
#include "panelsim/scenario/StepPlayer.h"
#include "panelsim/scenario/StepText.h"

#include <cstddef>
#include <optional>
#include <string>

namespace panelsim {

namespace {

/** @return whether a look at the panel helps to understand */
bool concernsPanel(ScenarioResult::Outcome outcome)
{
    return outcome == ScenarioResult::Outcome::Failed || outcome == ScenarioResult::Outcome::ApplicationFailed;
}

std::string describe(const StepPlayer::Failure& failure, const Simulation& simulation)
{
    if (!concernsPanel(failure.outcome)) {
        return failure.text;
    }
    return failure.text + "\n" + describeSituation(simulation);
}

} // namespace

ScenarioRunner::ScenarioRunner(const Scenario& itsScenario, Simulation& itsSimulation)
    : scenario(itsScenario), simulation(itsSimulation)
{
}

ScenarioResult ScenarioRunner::run()
{
    StepPlayer player(simulation, stopped);
    for (std::size_t i = 0; i < scenario.steps.size(); ++i) {
        const Step& step = scenario.steps[i];
        const std::string number = "step " + std::to_string(i + 1);
        simulation.log.remark(number + ": " + step.name + " " + describe(step.action));
        const std::optional<StepPlayer::Failure> failure = player.play(step);
        if (failure) {
            std::string message = scenario.file;
            message.append(":" + std::to_string(step.place.line) + ":" + std::to_string(step.place.column))
                .append(": " + number + ", " + step.name)
                .append(": " + describe(*failure, simulation));
            return {failure->outcome, message};
        }
    }
    return {ScenarioResult::Outcome::Passed, {}, player.hasAcceptedExit()};
}

void ScenarioRunner::stop()
{
    stopped = true;
    simulation.changes.notify();
}

} // namespace panelsim
