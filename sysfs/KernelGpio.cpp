#include "sysfs/KernelGpio.h"

#include "sysfs/CallOrder.h"
#include "sysfs/CharacterDeviceGpio.h"
#include "sysfs/GpioChips.h"
#include "sysfs/GpioFile.h"
#include "sysfs/LinuxGpio.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <system_error>
#include <utility>

namespace sysfs {

namespace {

constexpr const char* sysfsDirectory = "/sys/class/gpio";

std::string prefix(unsigned gpioNumber)
{
    return "GPIO " + std::to_string(gpioNumber) + ": ";
}

/** @return "chardev", "sysfs" or, when nothing is forced, "" */
std::string forcedBackend(unsigned gpioNumber)
{
    const char* const value = secure_getenv("SYSFSGPIO_BACKEND");
    std::string backend = value != nullptr ? value : "";
    if (!backend.empty() && backend != "chardev" && backend != "sysfs") {
        throw std::system_error(EINVAL, std::generic_category(),
                                prefix(gpioNumber) + "SYSFSGPIO_BACKEND is '" + backend +
                                    "', neither chardev nor sysfs");
    }
    return backend;
}

/** @return an error with both texts, the second without what the error adds or the first says */
std::system_error bothFailed(unsigned gpioNumber, const std::system_error& first, const std::system_error& second)
{
    std::string text = second.what();
    text.erase(text.size() - second.code().message().size() - std::string(": ").size());
    text.erase(0, prefix(gpioNumber).size());
    return {second.code(), std::string(first.what()) + "; " + text};
}

} // namespace

KernelGpio::KernelGpio(ISystemCalls& systemCalls) : calls(systemCalls)
{
}

bool KernelGpio::init(bool inverted, PinDirectionEn direction, bool initialValue)
{
    return exported(current, "init").init(inverted, direction, initialValue);
}

void KernelGpio::deinit()
{
    if (const std::unique_ptr<ISysfsGpio> pin = std::move(current)) {
        pin->deinit();
    }
}

void KernelGpio::setDirection(PinDirectionEn direction)
{
    exported(current, "setDirection").setDirection(direction);
}

bool KernelGpio::setValue(bool value)
{
    return exported(current, "setValue").setValue(value);
}

bool KernelGpio::getValue() const
{
    return exported(current, "getValue").getValue();
}

void KernelGpio::exportGpio(unsigned gpioNumber)
{
    if (current) {
        failExportedAgain(current->getGpioNumber());
    }
    const std::string backend = forcedBackend(gpioNumber);
    const GpioLine line = findGpioLine(calls, gpioNumber);
    if (backend == "sysfs") {
        current = exportInSysfs(line, gpioNumber);
        return;
    }
    try {
        auto pin = std::make_unique<CharacterDeviceGpio>(line, calls);
        pin->exportGpio(gpioNumber);
        current = std::move(pin);
    } catch (const std::system_error& error) {
        if (backend == "chardev" || error.code().value() == EBUSY) {
            throw;
        }
        try {
            current = exportInSysfs(line, gpioNumber);
        } catch (const std::system_error& sysfsError) {
            throw bothFailed(gpioNumber, error, sysfsError);
        }
    }
}

unsigned KernelGpio::getGpioNumber() const
{
    return exported(current, "getGpioNumber").getGpioNumber();
}

std::unique_ptr<ISysfsGpio> KernelGpio::exportInSysfs(const GpioLine& line, unsigned gpioNumber) const
{
    if (!line.chip.sysfsBase) {
        throw GpioFile(calls, gpioNumber, std::string(sysfsDirectory) + "/export", O_WRONLY)
            .error("use", ENODEV, "no base there is known to be that of " + line.chip.name);
    }
    auto pin = std::make_unique<LinuxGpio>(sysfsDirectory, calls, *line.chip.sysfsBase + line.offset - gpioNumber);
    pin->exportGpio(gpioNumber);
    return pin;
}

} // namespace sysfs
