#pragma once

#include "sysfs/Export.h"
#include "sysfs/PinDirectionEn.h"

namespace sysfs {

/**
 * One GPIO line. Levels are logical: a pin initialised as inverted is active-low, for reading and for writing.
 *
 * An operation that fails throws an exception derived from std::exception; init and setValue may report failure
 * by returning false instead. A pin is used from one thread at a time.
 *
 * GPIO libraries that are already installed on devices are called through the virtual table. Its slots follow the
 * order of the declarations, so that order must not change. An implementation overrides the pure operations.
 */
class SYSFSGPIO_EXPORT ISysfsGpio {
public:
    virtual ~ISysfsGpio() = default;

    /**
     * Configures the exported pin.
     * @param inverted     true makes the pin active-low
     * @param direction    input or output
     * @param initialValue logical level at which an output starts; without effect for an input
     * @return true when the pin is configured
     */
    virtual bool init(bool inverted, PinDirectionEn direction, bool initialValue) = 0;

    /** Releases what exportGpio and init set up. */
    virtual void deinit() = 0;

    /** Keeps its slot; never called. */
    virtual void reserved1() {}

    /**
     * Switches the direction of an initialised pin. An output takes the logical level that was last asked
     * for, by init or setValue.
     */
    virtual void setDirection(PinDirectionEn direction) = 0;

    /** @name Keep their slots; never called. */
    ///@{
    /** Does nothing. */
    virtual void reserved2() {}
    virtual void reserved3() {}
    virtual void reserved4() {}
    ///@}

    /**
     * Sets the logical level of an output.
     * @return true when the level is set
     */
    virtual bool setValue(bool value) = 0;

    /** @return the logical level of the line */
    virtual bool getValue() const = 0;

    /** Binds the object to a GPIO number and obtains that GPIO. May be called again after deinit. */
    virtual void exportGpio(unsigned gpioNumber) = 0;

    /** @return the number that was passed to exportGpio */
    virtual unsigned getGpioNumber() const = 0;
};

} // namespace sysfs
