#include "frontpanelhw/handler/GpioVectorCreator.h"

namespace frontpanelhw::handler {

GpioVectorCreator::GpioVectorCreator(const sysfs::ISysfsGpioFactory& pinFactory, unsigned first, unsigned pinCount)
    : factory(pinFactory), firstGpio(first), count(pinCount)
{
}

GpioVectorCreator::~GpioVectorCreator() = default;

std::vector<std::unique_ptr<sysfs::ISysfsGpio>>& GpioVectorCreator::createOnlyExported()
{
    deinit();
    for (unsigned i = 0; i < count; ++i) {
        gpios.push_back(factory.create());
        gpios.back()->exportGpio(firstGpio + i);
    }
    return gpios;
}

std::vector<std::unique_ptr<sysfs::ISysfsGpio>>&
GpioVectorCreator::createAndInit(bool inverted, sysfs::PinDirectionEn direction, bool initialValue)
{
    createOnlyExported();
    for (auto& gpio : gpios) {
        gpio->init(inverted, direction, initialValue);
    }
    return gpios;
}

void GpioVectorCreator::deinit()
{
    for (auto& gpio : gpios) {
        gpio->deinit();
    }
    for (auto& gpio : gpios) {
        gpio.reset();
    }
    gpios.clear();
}

} // namespace frontpanelhw::handler
