#pragma once

#include "PinDirectionEn.h"

#include <chrono>

namespace sysfs {

/** A pin as a device's own GPIO library declares it: with more operations than the front panel's library knows of. */
class ISysfsGpio {
public:
    virtual ~ISysfsGpio() = default;
    virtual bool init(bool inverted, PinDirectionEn direction, bool initialValue) = 0;
    virtual void deinit() = 0;
    virtual void setInverted(bool inverted) = 0;
    virtual void setDirection(PinDirectionEn direction) = 0;
    virtual void setEdge(bool rising, bool falling) = 0;
    virtual int getEdgeDescriptor() const = 0;
    virtual bool waitForEdge(std::chrono::milliseconds timeout) = 0;
    virtual bool setValue(bool value) = 0;
    virtual bool getValue() const = 0;
    virtual void exportGpio(unsigned gpioNumber) = 0;
    virtual unsigned getGpioNumber() const = 0;
};

} // namespace sysfs
