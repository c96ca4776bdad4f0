#pragma once

#include "panelsim/board/Board.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace panelsim {

struct StepKind;

/** A step of a scenario. Of the values, it has those that its kind has fields for. */
struct Step {
    const StepKind* kind = nullptr;
    std::string name; ///< as the file calls it
    unsigned fileLine = 1;
    unsigned fileColumn = 1;
    bool waits = false; ///< whether it waits for what it looks at

    std::chrono::milliseconds time{0}; ///< of a delay or a key, or after which a wait fails
    unsigned part = 0;                 ///< the key or LED
    std::optional<unsigned> line = {}; ///< of the display; any when empty
    unsigned from = 0;                 ///< first column
    unsigned to = 0;                   ///< last column
    std::string text = {};             ///< UTF-8
    bool whole = false;                ///< whether it is all of a line
    bool is = true;                    ///< whether something is to be on or inverted
    unsigned status = 0;               ///< as a shell has it
    PinFault fault = {};
    std::optional<std::filesystem::path> saveTo = {};
    std::optional<std::filesystem::path> compareWith = {};
};

/** What a person in front of the panel does, in turn, and what the panel is to show meanwhile. */
struct Scenario {
    std::string file; ///< for messages
    std::string name; ///< printable
    std::vector<Step> steps;
};

} // namespace panelsim
