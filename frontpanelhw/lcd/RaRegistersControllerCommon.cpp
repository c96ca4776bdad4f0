#include "frontpanelhw/lcd/RaRegistersControllerCommon.h"

#include "frontpanelhw/lcd/RegisterSetting.h"

namespace frontpanelhw::lcd {

namespace {

constexpr unsigned char inverseRegister = 0x10;
constexpr unsigned inverseBit = 0x20;

} // namespace

RaRegistersControllerCommon::RaRegistersControllerCommon(ILcd& bus) : lcd(bus), config(getConfig())
{
}

bool RaRegistersControllerCommon::initializeSettingsCommon()
{
    return writeRegisters(lcd, {
                                   {0x11, 0x20, 0xFF},
                                   {0x20, widthValue(config.textAreaWidth), 0xFF},
                                   {0x21, widthValue(config.displayWidth), 0xFF},
                                   {0x30, heightValue(config.textAreaHeight), 0xFF},
                                   {0x31, heightValue(config.displayHeight), 0xFF},
                                   {0x80, static_cast<unsigned char>(config.reg80Value), 0xFF},
                                   {0xE0, 0x00, 0xFF},
                               });
}

bool RaRegistersControllerCommon::setInverted(bool value)
{
    unsigned char current = 0;
    if (!lcd.isInitialized() || !lcd.readCmd(inverseRegister, current)) {
        return false;
    }
    const unsigned cleared = current & ~inverseBit;
    return lcd.writeCmd(inverseRegister, static_cast<unsigned char>(value ? cleared | inverseBit : cleared));
}

} // namespace frontpanelhw::lcd
