#pragma once

#include "panelsim/board/BoardConfig.h"
#include "panelsim/board/PanelView.h"

#include <filesystem>
#include <optional>
#include <string>

namespace panelsim {

/** Draws the panel into a file, as SVG or text after the file's extension. @throws std::system_error */
void saveScreenshot(const BoardConfig& config, const PanelView& view, const std::filesystem::path& file);

/**
 * Compares the panel with a file that it was once drawn into.
 * @return what differs, empty when nothing does
 * @throws std::system_error when the file cannot be read
 */
std::optional<std::string> compareScreenshot(const BoardConfig& config, const PanelView& view,
                                             const std::filesystem::path& file);

} // namespace panelsim
