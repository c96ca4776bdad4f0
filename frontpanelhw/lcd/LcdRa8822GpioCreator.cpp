#include "frontpanelhw/lcd/LcdRa8822GpioCreator.h"

namespace frontpanelhw::lcd {

LcdRa8822GpioCreator::LcdRa8822GpioCreator(sysfs::ISysfsGpioFactory& pinFactory) : factory(pinFactory)
{
}

std::unique_ptr<LcdRa8822Gpios> LcdRa8822GpioCreator::create() const
{
    auto gpios = std::make_unique<LcdRa8822Gpios>();
    for (auto& dataGpio : gpios->dataGpios) {
        dataGpio = factory.create();
    }
    gpios->registerSelectGpio = factory.create();
    gpios->chipSelectGpio = factory.create();
    gpios->readStrobeGpio = factory.create();
    gpios->writeStrobeGpio = factory.create();
    gpios->resetGpio = factory.create();
    gpios->backlightGpio = factory.create();
    return gpios;
}

} // namespace frontpanelhw::lcd
