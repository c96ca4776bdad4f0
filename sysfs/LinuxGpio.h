#pragma once

#include "sysfs/ISysfsGpio.h"
#include "sysfs/ISystemCalls.h"
#include "sysfs/PinDirectionEn.h"

#include <memory>
#include <string>

namespace sysfs {

/**
 * A GPIO line in the kernel's sysfs interface.
 *
 * Setting or reading a level and switching the direction take one system call each. Failures of the system throw
 * std::system_error, with a text that names GPIO, file and cause; calls out of order throw std::logic_error.
 */
class LinuxGpio final : public ISysfsGpio {
public:
    /**
     * @param directory   of the interface, /sys/class/gpio unless it is mounted elsewhere
     * @param systemCalls has to outlive the pin
     * @param numberShift what the interface's numbers are more than those passed to exportGpio, modulo 2^32
     */
    LinuxGpio(std::string directory, ISystemCalls& systemCalls, unsigned numberShift = 0);

    /** Like deinit, without reporting a failure. */
    ~LinuxGpio() override;

    LinuxGpio(const LinuxGpio&) = delete;
    LinuxGpio& operator=(const LinuxGpio&) = delete;

    /**
     * Configures the pin. May be called again. A line that becomes or stays an output goes to initialValue
     * without taking any other level on the way. An input that becomes an output later starts at initialValue.
     * @return true
     */
    bool init(bool inverted, PinDirectionEn direction, bool initialValue) override;

    /**
     * Releases the line, also when it throws. Does nothing on a pin that has no line. A line that was exported
     * before exportGpio stays exported. Afterwards exportGpio may be called again.
     */
    void deinit() override;

    /** To be called after init, which sets the polarity. */
    void setDirection(PinDirectionEn direction) override;

    /** @return true */
    bool setValue(bool value) override;

    bool getValue() const override;

    /**
     * Takes the line exclusively. Refuses a line that another process or object drives. Takes over a line that a
     * process left exported. Waits up to one second per file for udev to grant access.
     * When it throws, neither the object nor the line has changed.
     */
    void exportGpio(unsigned gpioNumber) override;

    /** @throws std::logic_error while the pin is not exported */
    unsigned getGpioNumber() const override;

private:
    struct Line;

    std::string root;
    ISystemCalls& calls;
    unsigned shift;
    std::unique_ptr<Line> current;
};

} // namespace sysfs
