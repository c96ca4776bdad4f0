#include "sysfs/CallOrder.h"

#include <stdexcept>
#include <string>

namespace sysfs {

void failBeforeExport(const char* operation)
{
    throw std::logic_error(std::string("GPIO pin: ") + operation + " before exportGpio");
}

void failExportedAgain(unsigned gpioNumber)
{
    throw std::logic_error("GPIO " + std::to_string(gpioNumber) + ": exportGpio again before deinit");
}

void failBeforeInit(unsigned gpioNumber)
{
    throw std::logic_error("GPIO " + std::to_string(gpioNumber) + ": setDirection before init");
}

} // namespace sysfs
