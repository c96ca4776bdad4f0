#include "tools/PanelKind.h"

#include "frontpanelhw/fp/Indoor.h"
#include "frontpanelhw/fp/Outdoor.h"
#include "tools/Wiring.h"

#include <algorithm>

namespace tools {

namespace fp = frontpanelhw::fp;
using frontpanelhw::FrontPanelType;

namespace {

std::unique_ptr<fp::IFp> constructIndoor(const Wiring& wiring)
{
    return std::make_unique<fp::Indoor>(wiring.keyBase, wiring.ledBase, wiring.lcdBase, wiring.keyCount(),
                                        wiring.ledCount(), wiring.invertedLeds, wiring.ledsOn);
}

std::unique_ptr<fp::IFp> constructOutdoor(const Wiring& wiring)
{
    return std::make_unique<fp::Outdoor>(wiring.keyBase, wiring.ledBase);
}

} // namespace

const std::array<PanelKind, 2> panelKinds{{
    {"indoor", FrontPanelType::Indoor, 3, 8, false, true, constructIndoor},
    {"outdoor", FrontPanelType::Outdoor, 2, 8, true, false, constructOutdoor},
}};

const PanelKind* findPanelKind(const std::string& name)
{
    const auto* const kind = std::find_if(panelKinds.begin(), panelKinds.end(),
                                          [&name](const PanelKind& candidate) { return candidate.name == name; });
    return kind == panelKinds.end() ? nullptr : kind;
}

} // namespace tools
