#include "frontpanelhw/lcd/Ra8803RegistersController.h"

#include "frontpanelhw/lcd/LcdConfig.h"
#include "frontpanelhw/lcd/RegisterSetting.h"

namespace frontpanelhw::lcd {

namespace {

constexpr unsigned char modeRegister = 0x00;
constexpr unsigned char contrastRegister = 0xD0;
constexpr unsigned highestContrastStep = 31;

/** Register 0x00 with the display on or off. */
unsigned char modeValue(const LcdConfig& panel, bool displayOn)
{
    return static_cast<unsigned char>(0xC0U | (panel.reg00Bit3 << 3) | (unsigned{displayOn} << 2) |
                                      (unsigned{panel.reg00Bit1} << 1) | unsigned{!panel.reg00Bit0});
}

} // namespace

Ra8803RegistersController::Ra8803RegistersController(ILcd& bus) : RaRegistersControllerCommon(bus)
{
}

Ra8803RegistersController::~Ra8803RegistersController() = default;

bool Ra8803RegistersController::enable(bool on)
{
    return lcd.writeCmd(modeRegister, modeValue(config, on));
}

bool Ra8803RegistersController::setContrast(unsigned value)
{
    return lcd.writeCmd(contrastRegister, static_cast<unsigned char>(value * highestContrastStep / 100));
}

bool Ra8803RegistersController::initializeRegisterSettings()
{
    bool ok = writeRegisters(lcd, {
                                      {modeRegister, modeValue(config, false), 0xFF},
                                      {0x01, static_cast<unsigned char>((config.reg01Bits << 1) | 0xB0), 0xFF},
                                      {0x02, 0x00, 0xFF},
                                      {0x03, 0x80, 0xFF},
                                      {0x10, 0x6B, 0xFF}, // bit 5: normal drawing
                                      {0x12, 0xA1, 0xFF}, // page 1 is written, page 2 is shown
                                  });
    ok &= initializeSettingsCommon();
    ok &= writeRegisters(lcd, {
                                  {0x40, 0x00, 0xFF},
                                  {0x50, 0x00, 0xFF},
                                  {0x41, 0x00, 0xFF},
                                  {0x51, 0x00, 0xFF},
                                  {0x60, 0x00, 0xFF},
                                  {0x61, 0x00, 0xFF},
                                  {0x70, 0x00, 0xFF},
                                  {0x71, 0x00, 0xFF},
                                  {0x72, 0xC7, 0xFF},
                                  {0x81, 0x00, 0xFF},
                                  {0x91, 0x00, 0xFF},
                                  {0x90, 0x1F, 0xFF},
                                  {0xA0, 0x00, 0x0F},
                                  {0xA1, 0x00, 0xFF},
                                  {0xA2, 0x00, 0xFF},
                                  {0xA3, 0x00, 0xFF},
                                  {0xB0, widthValue(config.textAreaWidth), 0xFF},
                                  {0xB1, heightValue(config.textAreaHeight), 0xFF},
                                  {0xC0, 0x00, 0x30},
                                  {0xC1, 0x08, 0x0C},
                                  {contrastRegister, 0x0C, 0xFF},
                                  {0xF0, static_cast<unsigned char>((config.regF0Bit2 << 2) | 0xD0), 0xFF},
                                  {0xF1, 0x0F, 0xFF},
                              });
    return ok;
}

bool Ra8803RegistersController::setInverted(bool value)
{
    if (value != inverted && !RaRegistersControllerCommon::setInverted(!value)) {
        return false;
    }
    inverted = value;
    return true;
}

} // namespace frontpanelhw::lcd
