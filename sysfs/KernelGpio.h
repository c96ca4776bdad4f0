#pragma once

#include "sysfs/ISysfsGpio.h"
#include "sysfs/ISystemCalls.h"
#include "sysfs/PinDirectionEn.h"

#include <memory>

namespace sysfs {

struct GpioLine;

/**
 * A GPIO line of the kernel by one of its two interfaces, which exportGpio chooses.
 *
 * It is the character device. Where that is not available, or the line is exported already, it is /sys/class/gpio.
 * The environment variable SYSFSGPIO_BACKEND=chardev or sysfs chooses by force.
 */
class KernelGpio final : public ISysfsGpio {
public:
    /** @param systemCalls has to outlive the pin */
    explicit KernelGpio(ISystemCalls& systemCalls);

    bool init(bool inverted, PinDirectionEn direction, bool initialValue) override;
    void deinit() override;
    void setDirection(PinDirectionEn direction) override;
    bool setValue(bool value) override;
    bool getValue() const override;

    /** @throws std::system_error when neither interface makes the line available, with the reasons of both */
    void exportGpio(unsigned gpioNumber) override;

    unsigned getGpioNumber() const override;

private:
    std::unique_ptr<ISysfsGpio> exportInSysfs(const GpioLine& line, unsigned gpioNumber) const;

    ISystemCalls& calls;
    std::unique_ptr<ISysfsGpio> current;
};

} // namespace sysfs
