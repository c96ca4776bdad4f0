#pragma once

#include "panelsim/board/Simulation.h"
#include "panelsim/scenario/Scenario.h"
#include "panelsim/scenario/StepKind.h"

#include <cstddef>
#include <optional>
#include <string>

namespace panelsim {

/** How a scenario has ended. */
struct ScenarioResult {
    /** The values are exit statuses, but for Stopped. */
    enum class Outcome {
        Passed = 0,
        Failed = 1,            ///< something was not as a step expected it
        FileError = 2,         ///< a picture could not be read or written
        ApplicationFailed = 3, ///< the application ended, not with status 0, while steps were left
        Stopped                ///< from outside
    };

    Outcome outcome = Outcome::Passed;
    std::string message = {};  ///< what has gone wrong: UTF-8, one line or more without a newline at the end
    bool exitAccepted = false; ///< whether a step waited for the application's end and found it as it was to be
};

/** @return what the panel shows and the last lines of the application, as text of several lines for a failure report */
std::string describeSituation(const Simulation& simulation);

/** Plays a scenario on a panel, with a hand of its own on the keys, while an application runs it. */
class ScenarioPlayer {
public:
    /** Both parameters must outlive the player. @param scenario read for the simulation's board */
    ScenarioPlayer(const Scenario& scenario, Simulation& simulation);
    /** Takes the hand off the keys. */
    ~ScenarioPlayer() { stage.simulation.board.releaseAll(Stage::hand); }

    ScenarioPlayer(const ScenarioPlayer&) = delete;
    ScenarioPlayer& operator=(const ScenarioPlayer&) = delete;

    /**
     * Plays on, as far as that goes without waiting; to be called every few milliseconds. The log reports each step.
     * When the application ends, its output and what it did to the panel have to be in the simulation before its state.
     * @return the result at the end
     */
    std::optional<ScenarioResult> advance();

    /** @return the result of a scenario that is ended where it is */
    ScenarioResult stop() const { return fail(ScenarioResult::Outcome::Stopped, "stopped"); }

private:
    void begin();
    ScenarioResult fail(ScenarioResult::Outcome outcome, const std::string& text) const;

    const Scenario& scenario;
    Stage stage;
    std::size_t next = 0; ///< index of the step that is played
};

} // namespace panelsim
