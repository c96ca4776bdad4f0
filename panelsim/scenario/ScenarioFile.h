#pragma once

#include "panelsim/board/Board.h"
#include "panelsim/scenario/Scenario.h"

#include <cstddef>
#include <filesystem>
#include <string>

namespace panelsim {

constexpr std::size_t largestScenario = std::size_t{1} << 20U; ///< bytes

/**
 * Reads a scenario from a file. Files that it names are relative to the file's directory; those that it compares with
 * have to be there.
 * @param board that it is to be played on
 * @throws ScenarioError for the first thing that is wrong in the file, or when it cannot be read
 */
Scenario readScenario(const std::filesystem::path& file, const Board& board);

/**
 * Makes a scenario of a file's content.
 * @param file where it comes from, as for readScenario
 * @throws ScenarioError for the first thing that is wrong in it
 */
Scenario parseScenario(const std::string& content, const std::filesystem::path& file, const Board& board);

} // namespace panelsim
