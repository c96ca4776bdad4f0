#pragma once

#include "panelsim/board/PanelView.h"
#include "panelsim/scenario/Scenario.h"

#include <optional>
#include <string>

namespace panelsim {

/** What speaks against an expectation, such as "LED 3 is off"; empty when it is met. */
using Objection = std::optional<std::string>;

Objection check(const steps::WaitText& step, const PanelView& view);
Objection check(const steps::ExpectText& step, const PanelView& view);
Objection check(const steps::ExpectInverted& step, const PanelView& view);
Objection check(const steps::ExpectLed& step, const PanelView& view);
Objection check(const steps::WaitLed& step, const PanelView& view);
Objection check(const steps::ExpectBacklight& step, const PanelView& view);

} // namespace panelsim
