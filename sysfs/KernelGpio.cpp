#include "sysfs/KernelGpio.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace sysfs {

KernelGpio::KernelGpio(Export exportLine) : makeAvailable(std::move(exportLine))
{
}

bool KernelGpio::init(bool inverted, PinDirectionEn direction, bool initialValue)
{
    IHeldGpio& gpio = held("init");
    gpio.setPolarity(inverted);
    hasPolarity = true;
    level = initialValue;
    gpio.configure(direction, level);
    return true;
}

void KernelGpio::deinit()
{
    if (const std::unique_ptr<IHeldGpio> released = std::move(line)) {
        released->release();
    }
}

void KernelGpio::setDirection(PinDirectionEn direction)
{
    IHeldGpio& gpio = held("setDirection");
    if (!hasPolarity) {
        throw std::logic_error("GPIO " + std::to_string(number) + ": setDirection before init");
    }
    gpio.configure(direction, level);
}

bool KernelGpio::setValue(bool value)
{
    IHeldGpio& gpio = held("setValue");
    level = value;
    gpio.setValue(value);
    return true;
}

bool KernelGpio::getValue() const
{
    return held("getValue").getValue();
}

void KernelGpio::exportGpio(unsigned gpioNumber)
{
    if (line) {
        throw std::logic_error("GPIO " + std::to_string(number) + ": exportGpio again before deinit");
    }
    line = makeAvailable(gpioNumber);
    number = gpioNumber;
    hasPolarity = false;
}

unsigned KernelGpio::getGpioNumber() const
{
    held("getGpioNumber");
    return number;
}

IHeldGpio& KernelGpio::held(const char* operation) const
{
    if (!line) {
        throw std::logic_error(std::string("GPIO pin: ") + operation + " before exportGpio");
    }
    return *line;
}

} // namespace sysfs
