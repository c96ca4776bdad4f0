#include "sysfs/ExportGpio.h"

#include "sysfs/CharacterDeviceGpio.h"
#include "sysfs/GpioChips.h"
#include "sysfs/GpioFile.h"
#include "sysfs/LinuxGpio.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <system_error>

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

std::unique_ptr<IHeldGpio> exportInSysfs(ISystemCalls& calls, const GpioLine& line, unsigned gpioNumber)
{
    if (!line.chip.sysfsBase) {
        throw GpioFile(calls, gpioNumber, std::string(sysfsDirectory) + "/export", O_WRONLY)
            .error("use", ENODEV, "no base there is known to be that of " + line.chip.name);
    }
    return exportLinuxGpio(calls, sysfsDirectory, gpioNumber, *line.chip.sysfsBase + line.offset);
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

std::unique_ptr<IHeldGpio> exportGpio(ISystemCalls& calls, unsigned gpioNumber)
{
    const std::string backend = forcedBackend(gpioNumber);
    const GpioLine line = findGpioLine(calls, gpioNumber);
    if (backend == "sysfs") {
        return exportInSysfs(calls, line, gpioNumber);
    }
    try {
        return exportCharacterDeviceGpio(calls, line, gpioNumber);
    } catch (const std::system_error& error) {
        if (backend == "chardev" || error.code().value() == EBUSY) {
            throw;
        }
        try {
            return exportInSysfs(calls, line, gpioNumber);
        } catch (const std::system_error& sysfsError) {
            throw bothFailed(gpioNumber, error, sysfsError);
        }
    }
}

} // namespace sysfs
