#include "sysfs/LinuxGpio.h"

#include "sysfs/CallOrder.h"
#include "sysfs/GpioExport.h"
#include "sysfs/GpioFile.h"

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
    Line(ISystemCalls& calls, const std::string& root, unsigned gpioNumber, unsigned kernelNumber);

    void writeDirection(PinDirectionEn newDirection, bool newLevel);

    unsigned number;
    std::string directory;
    GpioExport exported;
    GpioFile direction;
    GpioFile value;
    std::optional<bool> inverted;
    bool level = false;
};

LinuxGpio::Line::Line(ISystemCalls& calls, const std::string& root, unsigned gpioNumber, unsigned kernelNumber)
    : number(gpioNumber), directory(root + "/gpio" + std::to_string(kernelNumber)),
      exported(calls, root, gpioNumber, kernelNumber),
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
    level = newLevel;
    if (newDirection == PinDirectionEn::Input) {
        direction.write("in");
    } else if (newLevel != inverted.value()) {
        direction.write("high");
    } else {
        direction.write("low");
    }
}

LinuxGpio::LinuxGpio(std::string directory, ISystemCalls& systemCalls, unsigned numberShift)
    : root(std::move(directory)), calls(systemCalls), shift(numberShift)
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
    Line& pin = exported(current, "init");
    GpioFile(calls, pin.number, pin.directory + "/active_low", O_WRONLY, udevPatience).write(digit(inverted));
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
    Line& pin = exported(current, "setDirection");
    if (!pin.inverted) {
        failBeforeInit(pin.number);
    }
    pin.writeDirection(direction, pin.level);
}

bool LinuxGpio::setValue(bool value)
{
    Line& pin = exported(current, "setValue");
    pin.level = value;
    pin.value.write(digit(value));
    return true;
}

bool LinuxGpio::getValue() const
{
    return exported(current, "getValue").value.readLevel();
}

void LinuxGpio::exportGpio(unsigned gpioNumber)
{
    if (current) {
        failExportedAgain(current->number);
    }
    current = std::make_unique<Line>(calls, root, gpioNumber, gpioNumber + shift);
}

unsigned LinuxGpio::getGpioNumber() const
{
    return exported(current, "getGpioNumber").number;
}

} // namespace sysfs
