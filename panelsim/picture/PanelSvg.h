#pragma once

#include "panelsim/board/BoardConfig.h"
#include "panelsim/board/PanelView.h"

#include <string>

namespace panelsim {

/** How much of a panel is drawn. */
enum class SvgExtent {
    Face, ///< LCD and LEDs
    Panel ///< the keys too
};

/**
 * Draws a panel as an SVG document of its own, in UTF-8, without scripts, styles or references to other files. Its
 * description says in words what is seen. The same view always gives the same bytes.
 */
std::string drawPanelSvg(const BoardConfig& config, const PanelView& view, SvgExtent extent);

} // namespace panelsim
