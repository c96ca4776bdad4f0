#include "frontpanelhw/handler/LedCreator.h"

#include "frontpanelhw/IndexFlags.h"
#include "sysfs/PinDirectionEn.h"

#include <cstddef>

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
    const std::vector<bool> inverted = indexFlags(invertedLeds, leds.size());
    const std::vector<bool> initiallyOn = indexFlags(ledsInitiallyOn, leds.size());
    for (std::size_t i = 0; i < leds.size(); ++i) {
        leds[i]->init(inverted[i], sysfs::PinDirectionEn::Output, initiallyOn[i]);
    }
    return leds;
}

} // namespace frontpanelhw::handler
