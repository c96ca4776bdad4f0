#pragma once

#include "sysfs/PinDirectionEn.h"

namespace sysfs {

/** A GPIO line that this process holds until the object is destroyed. Failures throw std::system_error. */
class IHeldGpio {
public:
    virtual ~IHeldGpio() = default;

    /** Makes levels active-low, or not. The level of an output is undefined until configure has been called. */
    virtual void setPolarity(bool inverted) = 0;

    /** @param level at which an output starts; without effect for an input */
    virtual void configure(PinDirectionEn direction, bool level) = 0;

    virtual void setValue(bool value) = 0;

    virtual bool getValue() = 0;

    /** Releases what only the destructor would release otherwise, which cannot report that the kernel refuses. */
    virtual void release() {}
};

} // namespace sysfs
