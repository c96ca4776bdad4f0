#pragma once

#include "panelsim/board/Simulation.h"
#include "panelsim/scenario/PanelCheck.h"
#include "panelsim/scenario/Scenario.h"
#include "panelsim/scenario/ScenarioResult.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace panelsim {

/** Plays steps, one after the other, with a hand of its own on the keys. */
class StepPlayer {
public:
    /** Why a step did not come to its good end. */
    struct Failure {
        ScenarioResult::Outcome outcome;
        std::string text;
    };

    /**
     * Both parameters must outlive the player.
     * @param stopped ends steps, once it is set and the simulation's changes are notified
     */
    StepPlayer(Simulation& simulation, const std::atomic<bool>& stopped);
    /** Takes the hand off the keys. */
    ~StepPlayer();

    StepPlayer(const StepPlayer&) = delete;
    StepPlayer& operator=(const StepPlayer&) = delete;

    /** Blocks until the step is over. @return empty when all was as it should be */
    std::optional<Failure> play(const Step& step);
    /** @return whether a step has waited for the application's end, and found it as it was to be */
    bool hasAcceptedExit() const { return exitAccepted; }

private:
    using Clock = ChangeSignal::Clock;
    using Result = std::optional<Failure>;

    Result perform(const steps::Delay& step);
    Result perform(const steps::Press& step);
    Result perform(const steps::Release& step);
    Result perform(const steps::Tap& step);
    Result perform(const steps::WaitText& step);
    Result perform(const steps::ExpectText& step);
    Result perform(const steps::ExpectInverted& step);
    Result perform(const steps::ExpectLed& step);
    Result perform(const steps::WaitLed& step);
    Result perform(const steps::ExpectBacklight& step);
    Result perform(const steps::WaitOutput& step);
    Result perform(const steps::WaitExit& step);
    Result perform(const steps::ExpectNoBusFaults& step);
    Result perform(const steps::FailPin& step);
    Result perform(const steps::TakeScreenshot& step);

    Result judge(const Objection& objection) const;
    Result await(const std::function<Objection()>& look, std::chrono::milliseconds within) const;
    Result pause(std::chrono::milliseconds duration) const;
    Result unlessFailed(const std::function<void()>& action) const;
    void sleepUntilChange(std::uint64_t seen, Clock::time_point deadline) const;
    bool hasFailed(const AppState& app) const;
    Failure disappointed(const std::string& objection) const;
    Failure disappointed(const std::string& objection, const AppState& ended) const;

    Simulation& simulation;
    const std::atomic<bool>& stopped;
    std::string expectation;      ///< of the step that is played
    AppLog::Position outputPlace; ///< after what a step has found last
    bool exitAccepted = false;
};

} // namespace panelsim
