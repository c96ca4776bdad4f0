#include "frontpanelhw/lcd/RegisterSetting.h"

namespace frontpanelhw::lcd {

bool writeRegisters(ILcd& lcd, std::initializer_list<RegisterSetting> settings)
{
    bool ok = true;
    for (const RegisterSetting& setting : settings) {
        ok &= lcd.writeCmdAndVerify(setting.reg, setting.value, setting.mask);
    }
    return ok;
}

} // namespace frontpanelhw::lcd
