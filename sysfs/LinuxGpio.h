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
     * @param root  directory of the interface, /sys/class/gpio unless it is mounted elsewhere
     * @param calls has to outlive the pin
     */
    LinuxGpio(std::string root, ISystemCalls& calls);

    /** Like deinit, without reporting a failure. */
    ~LinuxGpio() override;

    LinuxGpio(const LinuxGpio&) = delete;
    LinuxGpio& operator=(const LinuxGpio&) = delete;

    /**
     * Configures the pin, the first time or anew. A line that becomes or stays an output goes to initialValue
     * without taking any other level on the way. An input that becomes an output later starts at initialValue.
     * @return true
     */
    bool init(bool inverted, PinDirectionEn direction, bool initialValue) override;

    /**
     * Releases the line, also when it throws; no effect on a pin that has none. A line that was exported before
     * this object came stays exported. The pin can be bound anew afterwards.
     */
    void deinit() override;

    /** To be called after init, which settles the polarity. */
    void setDirection(PinDirectionEn direction) override;

    /** @return true */
    bool setValue(bool value) override;

    bool getValue() const override;

    /**
     * Takes the line for this object alone: it refuses a line that another process or object drives, and takes
     * over one that a process left behind. Waits up to one second per file for udev to grant access.
     * When it throws, the object is as before and the line as it was found.
     */
    void exportGpio(unsigned gpioNumber) override;

    /** @throws std::logic_error while the pin is not exported */
    unsigned getGpioNumber() const override;

private:
    struct Line;

    Line& line(const char* operation) const;

    std::string root_;
    ISystemCalls& calls_;
    std::unique_ptr<Line> line_;
};

} // namespace sysfs
