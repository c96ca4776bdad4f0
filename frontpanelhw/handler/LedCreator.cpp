#include "frontpanelhw/handler/LedCreator.h"

#include "frontpanelhw/Contains.h"
#include "sysfs/PinDirectionEn.h"

namespace frontpanelhw::handler {

LedCreator::LedCreator(sysfs::ISysfsGpioFactory& factory, unsigned firstGpio, unsigned count)
    : gpioCreator(std::make_unique<GpioVectorCreator>(factory, firstGpio, count))
{
}

LedCreator::~LedCreator() = default;

std::vector<std::unique_ptr<sysfs::ISysfsGpio>>& LedCreator::create(const std::vector<unsigned>& invertedLeds,
                                                                    const std::vector<unsigned>& ledsInitiallyOn)
{
    auto& leds = gpioCreator->createOnlyExported();
    for (unsigned i = 0; i < leds.size(); ++i) {
        leds[i]->init(contains(invertedLeds, i), sysfs::PinDirectionEn::Output, contains(ledsInitiallyOn, i));
    }
    return leds;
}

} // namespace frontpanelhw::handler
