#pragma once

#include "panelsim/board/Board.h"
#include "panelsim/scenario/Scenario.h"
#include "panelsim/scenario/YamlNode.h"

#include <filesystem>

namespace panelsim {

/**
 * Reads a step: a mapping of its name to what it needs, or the name alone.
 * @param board     that the step is to be possible on
 * @param directory that files in it are relative to
 * @throws PlacedError for anything else
 */
Step readStep(const YamlNode& node, const Board& board, const std::filesystem::path& directory);

} // namespace panelsim
