#include "frontpanelhw/lcd/LcdControllerBase.h"

namespace frontpanelhw::lcd {

LcdControllerBase::LcdControllerBase(ILcd& bus) : lcd(bus)
{
}

LcdControllerBase::~LcdControllerBase() = default;

bool LcdControllerBase::deinit()
{
    return lcd.deinit();
}

bool LcdControllerBase::resetController()
{
    return lcd.resetController();
}

bool LcdControllerBase::isInitialized()
{
    return lcd.isInitialized();
}

bool LcdControllerBase::setBacklight(bool on)
{
    return lcd.setBacklight(on);
}

} // namespace frontpanelhw::lcd
