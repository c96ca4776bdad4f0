#pragma once

#include "panelsim/board/Simulation.h"
#include "panelsim/scenario/Scenario.h"
#include "panelsim/scenario/ScenarioResult.h"
#include "panelsim/scenario/ScenarioRunner.h"

#include <functional>
#include <future>
#include <optional>

namespace panelsim {

/** A scenario that is played on a thread of its own. */
class PlayingScenario {
public:
    /**
     * Scenario and simulation must outlive this object.
     * @param onEnd called on that thread when there is a result to take
     */
    PlayingScenario(const Scenario& scenario, Simulation& simulation, std::function<void()> onEnd);
    /** Ends it where it is. */
    ~PlayingScenario();

    PlayingScenario(const PlayingScenario&) = delete;
    PlayingScenario& operator=(const PlayingScenario&) = delete;

    void stop() { runner.stop(); }

    /** @return the result once there is one, the first time only @throws std::exception what ended the playing instead
     */
    std::optional<ScenarioResult> takeResult();

private:
    ScenarioRunner runner;
    std::promise<ScenarioResult> promisedResult;
    std::future<ScenarioResult> result;
    std::future<void> playing;
};

} // namespace panelsim
