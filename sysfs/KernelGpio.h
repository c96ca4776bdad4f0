#pragma once

#include "sysfs/IHeldGpio.h"
#include "sysfs/ISysfsGpio.h"
#include "sysfs/PinDirectionEn.h"

#include <functional>
#include <memory>

namespace sysfs {

/** A pin that holds a GPIO line of the kernel from exportGpio to deinit. Calls out of order throw std::logic_error. */
class KernelGpio final : public ISysfsGpio {
public:
    using Export = std::function<std::unique_ptr<IHeldGpio>(unsigned gpioNumber)>;

    /** @param exportLine makes a line available or throws */
    explicit KernelGpio(Export exportLine);

    /**
     * Configures the pin. May be called again. A line that becomes or stays an output goes to initialValue
     * without taking any other level on the way. An input that becomes an output later starts at initialValue.
     * @return true
     */
    bool init(bool inverted, PinDirectionEn direction, bool initialValue) override;

    /** Releases the line, also when it throws. Does nothing on a pin that has no line. */
    void deinit() override;

    /** To be called after init, which sets the polarity. */
    void setDirection(PinDirectionEn direction) override;

    /** @return true */
    bool setValue(bool value) override;

    bool getValue() const override;

    /** When it throws, neither the object nor the line has changed. */
    void exportGpio(unsigned gpioNumber) override;

    unsigned getGpioNumber() const override;

private:
    IHeldGpio& held(const char* operation) const;

    Export makeAvailable;
    std::unique_ptr<IHeldGpio> line;
    unsigned number = 0;
    bool hasPolarity = false;
    bool level = false; // last passed to init or setValue
};

} // namespace sysfs
