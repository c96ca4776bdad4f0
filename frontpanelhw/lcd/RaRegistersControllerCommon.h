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

    /** Writes the start-up registers that both variants have alike, all of them whatever becomes of the others. */
    bool initializeSettingsCommon();

    /** Sets bit 5 of register 0x10 to value and leaves its other bits; stops at the first access that fails. */
    bool setInverted(bool value);

protected:
    /** @return the bus given at construction */
    ILcd& getLcd() const { return lcd; }

    /** @return the geometry and mode that the start-up registers are made from */
    const LcdConfig& getLcdConfig() const { return config; }

private:
    ILcd& lcd;
    LcdConfig config;
};

} // namespace frontpanelhw::lcd
