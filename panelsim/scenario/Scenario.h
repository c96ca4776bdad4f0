#pragma once

#include "panelsim/board/Board.h"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace panelsim {

struct StepKind;

/** A step of a scenario. Of the values, it has those that its kind has fields for. */
struct Step {
    const StepKind* kind = nullptr;
    std::string place;  ///< FILE:LINE:COLUMN, printable
    std::string said;   ///< name and value, in one printable line
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
    std::filesystem::path saveTo = {};      ///< empty for none
    std::filesystem::path compareWith = {}; ///< empty for none
    std::string expected = {};              ///< what is in that file
};

/** What a person in front of the panel does, in turn, and what the panel is to show meanwhile. */
struct Scenario {
    std::string file; ///< printable
    std::string name; ///< printable
    std::vector<Step> steps;
};

constexpr std::size_t largestScenario = std::size_t{1} << 20U; ///< bytes

/**
 * Reads a scenario from a file. Files that it names are relative to the file's directory; those that it compares with
 * have to be there.
 * @param board that it is to be played on
 * @throws std::runtime_error with file, line and column of the first thing that is wrong, in one line, or when the file
 *         cannot be read
 */
Scenario readScenario(const std::filesystem::path& file, const Board& board);

/** Makes a scenario of a file's content. @param file where it comes from; otherwise as readScenario */
Scenario parseScenario(const std::string& content, const std::filesystem::path& file, const Board& board);

} // namespace panelsim
