#pragma once

#include "frontpanelhw/FrontPanelType.h"
#include "frontpanelhw/fp/IFp.h"

#include <array>
#include <memory>

namespace tools {

struct Wiring;

/** A panel that can be fitted. */
struct PanelKind {
    const char* name;
    frontpanelhw::FrontPanelType type; ///< what the ID lines show
    unsigned keyCount;
    unsigned ledCount;
    bool isFixed; ///< counts are always these, LEDs are all active-high and off at the start
    bool hasDisplay;

    /** Constructs the panel on its lines. A panel with a display is an Indoor. */
    std::unique_ptr<frontpanelhw::fp::IFp> (*construct)(const Wiring&);
};

/** All of them, after one that stands for a panel that the ID lines are to show and has what every panel has. */
extern const std::array<PanelKind, 3> panelKinds;

} // namespace tools
