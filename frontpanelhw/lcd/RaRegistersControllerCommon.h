#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/lcd/ILcd.h"
#include "frontpanelhw/lcd/LcdConfig.h"

namespace frontpanelhw::lcd {

/** What the register profiles of both chip variants share. */
class FRONTPANELHW_EXPORT RaRegistersControllerCommon {
public:
    /** Makes no bus access. @param lcd the bus; must outlive the profile */
    explicit RaRegistersControllerCommon(ILcd& lcd);

    /** Writes all start-up registers that both variants share, even if some fail. */
    bool initializeSettingsCommon();

    /** Sets bit 5 of register 0x10 to value and leaves its other bits; stops at the first access that fails. */
    bool setInverted(bool value);

protected:
    ILcd& lcd;        ///< the bus given at construction
    LcdConfig config; ///< geometry and mode that the start-up registers are made from
};

} // namespace frontpanelhw::lcd
