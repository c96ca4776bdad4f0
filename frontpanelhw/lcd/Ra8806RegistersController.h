#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/lcd/ILcd.h"
#include "frontpanelhw/lcd/IRaController.h"
#include "frontpanelhw/lcd/RaRegistersControllerCommon.h"

namespace frontpanelhw::lcd {

/** Register profile of the RA8806. It has no contrast register: setContrast succeeds without a bus access. Bit 5 of
 * register 0x10 means inverted drawing. */
class FRONTPANELHW_EXPORT Ra8806RegistersController : public IRaController, public RaRegistersControllerCommon {
public:
    /** Makes no bus access. @param lcd the bus; must outlive the profile */
    explicit Ra8806RegistersController(ILcd& lcd);

    ~Ra8806RegistersController() override;

    bool enable(bool on) override;
    bool setContrast(unsigned value) override;
    bool initializeRegisterSettings() override;
    bool setInverted(bool value) override;

private:
    bool inverted = false;
};

} // namespace frontpanelhw::lcd
