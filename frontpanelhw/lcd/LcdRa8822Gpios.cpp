#include "frontpanelhw/lcd/LcdRa8822Gpios.h"

#include "sysfs/PinDirectionEn.h"

namespace frontpanelhw::lcd {

namespace {

bool initOutput(sysfs::ISysfsGpio& gpio, bool inverted)
{
    return gpio.init(inverted, sysfs::PinDirectionEn::Output, false);
}

} // namespace

bool initGpios(LcdRa8822Gpios& gpios, bool backlightInverted)
{
    bool ok = true;
    for (auto& dataGpio : gpios.dataGpios) {
        ok &= initOutput(*dataGpio, false);
    }
    ok &= initOutput(*gpios.registerSelectGpio, false);
    ok &= initOutput(*gpios.chipSelectGpio, true);
    ok &= initOutput(*gpios.readStrobeGpio, true);
    ok &= initOutput(*gpios.writeStrobeGpio, true);
    ok &= initOutput(*gpios.resetGpio, true);
    ok &= initOutput(*gpios.backlightGpio, backlightInverted);
    return ok;
}

} // namespace frontpanelhw::lcd
