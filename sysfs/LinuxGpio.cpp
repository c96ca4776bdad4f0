#include "sysfs/LinuxGpio.h"

#include "sysfs/GpioExport.h"
#include "sysfs/SysfsFile.h"

#include <cerrno>
#include <chrono>
#include <exception>
#include <fcntl.h>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace sysfs {

namespace {

constexpr std::chrono::milliseconds udevPatience{1000};

constexpr std::string_view digit(bool value)
{
    return value ? "1" : "0";
}

} // namespace

struct LinuxGpio::Line {
    Line(ISystemCalls& calls, const std::string& root, unsigned gpioNumber);

    void writeDirection(PinDirectionEn newDirection, bool newLevel);

    unsigned number;
    std::string directory;
    GpioExport exported;
    SysfsFile direction;
    SysfsFile value;
    std::optional<bool> inverted;
    bool level = false;
};

LinuxGpio::Line::Line(ISystemCalls& calls, const std::string& root, unsigned gpioNumber)
    : number(gpioNumber), directory(root + "/gpio" + std::to_string(gpioNumber)), exported(calls, root, gpioNumber),
      direction(calls, gpioNumber, directory + "/direction", O_WRONLY, udevPatience),
      value(calls, gpioNumber, directory + "/value", O_RDWR, udevPatience)
{
    if (!value.tryLock()) {
        exported.abandon();
        throw value.error("lock", EBUSY);
    }
}

// The kernel takes "high" and "low" as electrical levels, whatever active_low says, and sets the level before it
// turns the line into an output.
void LinuxGpio::Line::writeDirection(PinDirectionEn newDirection, bool newLevel)
{
    if (newDirection == PinDirectionEn::Input) {
        direction.write("in");
    } else if (newLevel != inverted.value()) {
        direction.write("high");
    } else {
        direction.write("low");
    }
    level = newLevel;
}

LinuxGpio::LinuxGpio(std::string directory, ISystemCalls& systemCalls) : root(std::move(directory)), calls(systemCalls)
{
}

LinuxGpio::~LinuxGpio()
{
    try {
        deinit();
    } catch (const std::exception&) {
        // A destructor cannot report. The line has been released.
    }
}

bool LinuxGpio::init(bool inverted, PinDirectionEn direction, bool initialValue)
{
    Line& pin = line("init");
    SysfsFile(calls, pin.number, pin.directory + "/active_low", O_WRONLY, udevPatience).write(digit(inverted));
    pin.inverted = inverted;
    pin.writeDirection(direction, initialValue);
    return true;
}

void LinuxGpio::deinit()
{
    // The lock is released last: otherwise another process could take over a line that is about to vanish.
    if (const std::unique_ptr<Line> pin = std::move(current)) {
        pin->exported.release();
    }
}

void LinuxGpio::setDirection(PinDirectionEn direction)
{
    Line& pin = line("setDirection");
    if (!pin.inverted) {
        throw std::logic_error("GPIO " + std::to_string(pin.number) + ": setDirection before init");
    }
    pin.writeDirection(direction, pin.level);
}

bool LinuxGpio::setValue(bool value)
{
    Line& pin = line("setValue");
    pin.value.write(digit(value));
    pin.level = value;
    return true;
}

bool LinuxGpio::getValue() const
{
    return line("getValue").value.readLevel();
}

void LinuxGpio::exportGpio(unsigned gpioNumber)
{
    if (current) {
        throw std::logic_error("GPIO " + std::to_string(current->number) + ": exportGpio again before deinit");
    }
    current = std::make_unique<Line>(calls, root, gpioNumber);
}

unsigned LinuxGpio::getGpioNumber() const
{
    return line("getGpioNumber").number;
}

LinuxGpio::Line& LinuxGpio::line(const char* operation) const
{
    if (!current) {
        throw std::logic_error(std::string("GPIO pin: ") + operation + " before exportGpio");
    }
    return *current;
}

} // namespace sysfs
