#pragma once

#include "sysfs/GpioChips.h"
#include "sysfs/ISysfsGpio.h"
#include "sysfs/ISystemCalls.h"
#include "sysfs/PinDirectionEn.h"

#include <memory>

namespace sysfs {

/**
 * A GPIO line by the character device of its chip, which needs Linux 5.10.
 *
 * Reading a level and switching the direction take one system call each. So does setting a level, unless the output has
 * it already: while a line is requested, the kernel lets nobody else change it. Failures of the system throw
 * std::system_error with a text that names GPIO, line and cause. Calls out of order throw std::logic_error.
 */
class CharacterDeviceGpio final : public ISysfsGpio {
public:
    /** @param systemCalls has to outlive the pin */
    CharacterDeviceGpio(GpioLine line, ISystemCalls& systemCalls);

    /** Like deinit. */
    ~CharacterDeviceGpio() override;

    /**
     * Configures polarity, direction and first level at once. May be called again.
     * @return true
     */
    bool init(bool inverted, PinDirectionEn direction, bool initialValue) override;

    /** Releases the line. What becomes of its direction and level is up to the chip's driver. */
    void deinit() override;

    /** To be called after init, which sets the polarity. */
    void setDirection(PinDirectionEn direction) override;

    /** @return true */
    bool setValue(bool value) override;

    bool getValue() const override;

    /**
     * Requests the line with the direction and level that it has.
     * @throws std::system_error with EBUSY for a line in use, EEXIST for one that is exported in /sys/class/gpio
     */
    void exportGpio(unsigned gpioNumber) override;

    unsigned getGpioNumber() const override;

private:
    struct Line;

    GpioLine place;
    ISystemCalls& calls;
    std::unique_ptr<Line> current;
};

} // namespace sysfs
