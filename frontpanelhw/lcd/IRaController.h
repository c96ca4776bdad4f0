#pragma once

#include "frontpanelhw/Export.h"

namespace frontpanelhw::lcd {

/**
 * Register profile of one variant of the controller chip. Operations return true when every bus access that they
 * made succeeded; they print nothing and take no lock.
 */
class FRONTPANELHW_EXPORT IRaController {
public:
    virtual ~IRaController() = default;

    /** Switches the display output on or off. */
    virtual bool enable(bool on) = 0;

    /** Sets the contrast. @param value percent, 0 to 100; not checked */
    virtual bool setContrast(unsigned value) = 0;

    /** Writes all of the variant's start-up registers, even if some fail; the display is then off. */
    virtual bool initializeRegisterSettings() = 0;

    /** Chooses whether the characters written next are drawn inverted; no bus access when it is set already. */
    virtual bool setInverted(bool value) = 0;
};

} // namespace frontpanelhw::lcd
