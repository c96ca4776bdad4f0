// An application of the library: detects which panel is fitted and switches its LED 3 on.
#include "frontpanelhw/FrontPanelType.h"
#include "frontpanelhw/fp/Indoor.h"
#include "frontpanelhw/fp/Outdoor.h"
#include "sysfs/SysfsGpioFactory.h"

int main()
{
    sysfs::SysfsGpioFactory factory;
    const auto type = frontpanelhw::detectType(factory, 4);
    if (type == frontpanelhw::FrontPanelType::Indoor) {
        return frontpanelhw::fp::Indoor(10, 20, 40, 3, 8, {}, {}).setLed(3, true) ? 0 : 1;
    }
    return type == frontpanelhw::FrontPanelType::Outdoor && frontpanelhw::fp::Outdoor(10, 20).setLed(3, true) ? 0 : 1;
}
