#pragma once

#include "sysfs/ISysfsGpio.h"
#include "sysfs/PinDirectionEn.h"

#include <functional>
#include <gtest/gtest.h>
#include <system_error>

namespace tests {

/**
 * All that can be done to an active-low pin: an output at a level, made an input and back; at the other level, made an
 * input and back; an input that becomes an output later.
 * @return what it reads in the end
 */
inline bool live(sysfs::ISysfsGpio& pin)
{
    using sysfs::PinDirectionEn;
    pin.exportGpio(40);
    EXPECT_TRUE(pin.init(true, PinDirectionEn::Output, true));
    pin.setDirection(PinDirectionEn::Input);
    pin.setDirection(PinDirectionEn::Output);
    EXPECT_TRUE(pin.setValue(false));
    pin.setDirection(PinDirectionEn::Input);
    pin.setDirection(PinDirectionEn::Output);
    EXPECT_TRUE(pin.init(true, PinDirectionEn::Input, true));
    pin.setDirection(PinDirectionEn::Output);
    const bool level = pin.getValue();
    pin.deinit();
    return level;
}

/** @return the error that the action throws; without one, an error of code 0 */
inline std::system_error errorOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const std::system_error& error) {
        return error;
    }
    return {0, std::generic_category()};
}

} // namespace tests
