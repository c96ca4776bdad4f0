#include "frontpanelhw/lcd/Ra8806RegistersController.h"

#include "frontpanelhw/lcd/LcdConfig.h"
#include "frontpanelhw/lcd/RegisterSetting.h"

namespace frontpanelhw::lcd {

namespace {

constexpr unsigned char modeRegister = 0x00;

/** Register 0x00 with the display on or off. */
unsigned char modeValue(const LcdConfig& panel, bool displayOn)
{
    return static_cast<unsigned char>(unsigned{panel.reg00Bit0} | (unsigned{panel.reg00Bit1} << 1) |
                                      (unsigned{displayOn} << 2) | ((panel.reg00Bit3 & 1U) << 3));
}

} // namespace

Ra8806RegistersController::Ra8806RegistersController(ILcd& bus) : RaRegistersControllerCommon(bus)
{
}

Ra8806RegistersController::~Ra8806RegistersController() = default;

bool Ra8806RegistersController::enable(bool on)
{
    return lcd.writeCmd(modeRegister, modeValue(config, on));
}

bool Ra8806RegistersController::setContrast(unsigned /*value*/)
{
    return true;
}

bool Ra8806RegistersController::initializeRegisterSettings()
{
    bool ok = writeRegisters(lcd, {
                                      {modeRegister, modeValue(config, false), 0xFF},
                                      {0x01, 0x04, 0xFF},
                                      {0x10, 0x42, 0xFF}, // bit 5 clear: normal drawing
                                  });
    ok &= initializeSettingsCommon();
    ok &= writeRegisters(lcd, {
                                  {0xF0, static_cast<unsigned char>((config.regF0Bit2 & 1U) << 2), 0xFF},
                              });
    return ok;
}

bool Ra8806RegistersController::setInverted(bool value)
{
    if (value != inverted && !RaRegistersControllerCommon::setInverted(value)) {
        return false;
    }
    inverted = value;
    return true;
}

} // namespace frontpanelhw::lcd
