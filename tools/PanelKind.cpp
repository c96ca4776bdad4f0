#include "tools/PanelKind.h"

#include "frontpanelhw/fp/Indoor.h"
#include "frontpanelhw/fp/Outdoor.h"
#include "tools/Wiring.h"

namespace tools {

namespace fp = frontpanelhw::fp;
using frontpanelhw::FrontPanelType;

const std::array<PanelKind, 3> panelKinds{{
    {"auto", FrontPanelType::Unknown, 2, 8, false, false, nullptr},
    {"indoor", FrontPanelType::Indoor, 3, 8, false, true,
     [](const Wiring& wiring) -> std::unique_ptr<fp::IFp> {
         return std::make_unique<fp::Indoor>(wiring.keyBase, wiring.ledBase, wiring.lcdBase, wiring.keyCount(),
                                             wiring.ledCount(), wiring.invertedLeds, wiring.ledsOn);
     }},
    {"outdoor", FrontPanelType::Outdoor, 2, 8, true, false,
     [](const Wiring& wiring) -> std::unique_ptr<fp::IFp> {
         return std::make_unique<fp::Outdoor>(wiring.keyBase, wiring.ledBase);
     }},
}};

} // namespace tools
