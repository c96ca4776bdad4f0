#pragma once

#include <memory>
#include <stdexcept>
#include <string>

namespace sysfs {

/** @return what a pin has from exportGpio to deinit @throws std::logic_error without it */
template <typename Line>
Line& exported(const std::unique_ptr<Line>& line, const char* operation)
{
    if (!line) {
        throw std::logic_error(std::string("GPIO pin: ") + operation + " before exportGpio");
    }
    return *line;
}

inline std::logic_error exportedAgain(unsigned gpioNumber)
{
    return std::logic_error("GPIO " + std::to_string(gpioNumber) + ": exportGpio again before deinit");
}

inline std::logic_error beforeInit(unsigned gpioNumber)
{
    return std::logic_error("GPIO " + std::to_string(gpioNumber) + ": setDirection before init");
}

} // namespace sysfs
