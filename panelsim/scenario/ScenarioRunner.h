#pragma once

#include "panelsim/board/Simulation.h"
#include "panelsim/scenario/Scenario.h"
#include "panelsim/scenario/ScenarioResult.h"

#include <atomic>

namespace panelsim {

/** Plays a scenario on a panel, while an application that may be started before or meanwhile runs it. */
class ScenarioRunner {
public:
    /** Both parameters must outlive the runner. @param scenario read for the simulation's board */
    ScenarioRunner(const Scenario& scenario, Simulation& simulation);

    /**
     * Plays all steps until one fails, and then leaves the keys. The log tells of each step. To be called once.
     *
     * When the application ends, its output and what it did to the panel have to be in the simulation before its state.
     */
    ScenarioResult run();

    /** Ends run at once, from another thread. */
    void stop();

private:
    const Scenario& scenario;
    Simulation& simulation;
    std::atomic<bool> stopped{false};
};

} // namespace panelsim
