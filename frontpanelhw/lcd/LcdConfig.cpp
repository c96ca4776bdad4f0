#include "frontpanelhw/lcd/LcdConfig.h"

namespace frontpanelhw::lcd {

LcdConfig getConfig()
{
    LcdConfig config{};
    config.textAreaWidth = 200;
    config.textAreaHeight = 48;
    config.displayWidth = 240;
    config.displayHeight = 48;
    config.reg00Bit0 = false;
    config.reg00Bit1 = false;
    config.reg80Value = 100;
    config.reg00Bit3 = 1;
    config.regF0Bit2 = 1;
    config.reg01Bits = 3;
    return config;
}

} // namespace frontpanelhw::lcd
