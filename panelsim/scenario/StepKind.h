#pragma once

#include "panelsim/board/Simulation.h"
#include "panelsim/scenario/Scenario.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace panelsim {

/** What a step is played on, and how far that has come. */
struct Stage {
    /** Of the one that scenarios press keys with. */
    static constexpr Board::Hand hand = 0;

    Simulation& simulation;
    AppLog::Position output = {}; ///< what has been searched for text
    bool endAccepted = false;     ///< whether a step has looked at the application's end

    std::chrono::steady_clock::time_point begun = {}; ///< when the step was
    unsigned phase = 0;                               ///< of a tap
    std::uint64_t keyReads = 0;                       ///< at the beginning of the phase
    std::optional<std::uint64_t> searched = {};       ///< version of the log that was searched last
};

/** A kind of step: all that there is to say about it. */
struct StepKind {
    enum class Form {
        Action,     ///< is done in its time, but not once the application has failed
        Check,      ///< is right or wrong at once
        Observation ///< expect- is right or wrong at once, wait- fails when its time is over
    };

    std::string name; ///< of an observation without expect- or wait-
    Form form;
    bool needsDisplay;
    std::vector<std::string> fields; ///< without that of all waits; an empty name stands for a value without fields
    std::size_t required;            ///< how many of them, from the first one on, have to be given
    /**
     * Does it, or looks.
     * @return what is not as it should be or, of an action, not done; empty when the step is over
     * @throws std::system_error when a file cannot be used
     */
    std::optional<std::string> (*play)(const Step& step, Stage& stage);
};

/** All of them. */
extern const std::vector<StepKind> stepKinds;

} // namespace panelsim
