#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/lcd/ILcd.h"
#include "frontpanelhw/lcd/IRaController.h"
#include "frontpanelhw/lcd/RaRegistersControllerCommon.h"

namespace frontpanelhw::lcd {

/** Register profile of the RA8803. Its contrast has 32 steps, in register 0xD0; bit 5 of register 0x10 means normal
 * drawing. */
class FRONTPANELHW_EXPORT Ra8803RegistersController : public IRaController, public RaRegistersControllerCommon {
public:
    /** Makes no bus access. @param lcd the bus; must outlive the profile */
    explicit Ra8803RegistersController(ILcd& lcd);

    ~Ra8803RegistersController() override;

    bool enable(bool on) override;
    bool setContrast(unsigned value) override;
    bool initializeRegisterSettings() override;
    bool setInverted(bool value) override;

private:
    bool inverted = false;
};

} // namespace frontpanelhw::lcd
