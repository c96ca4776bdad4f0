// An application of the library: detects which panel is fitted and switches its LED 3 on.
#include "frontpanelhw/FrontPanelType.h"
#include "frontpanelhw/fp/Indoor.h"
#include "frontpanelhw/fp/Outdoor.h"
#include "sysfs/SysfsGpioFactory.h"

#include <exception>
#include <iostream>

int main()
{
    try {
        sysfs::SysfsGpioFactory factory;
        switch (frontpanelhw::detectType(factory, 4)) {
        case frontpanelhw::FrontPanelType::Indoor:
            return frontpanelhw::fp::Indoor(10, 20, 40, 3, 8, {}, {}).setLed(3, true) ? 0 : 1;
        case frontpanelhw::FrontPanelType::Outdoor:
            return frontpanelhw::fp::Outdoor(10, 20).setLed(3, true) ? 0 : 1;
        case frontpanelhw::FrontPanelType::Unknown:
            break;
        }
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
    }
    return 1;
}
