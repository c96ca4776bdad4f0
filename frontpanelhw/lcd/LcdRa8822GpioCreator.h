#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/lcd/LcdRa8822Gpios.h"
#include "sysfs/ISysfsGpioFactory.h"

#include <memory>

namespace frontpanelhw::lcd {

/** Makes the LCD's pin record. */
class FRONTPANELHW_EXPORT LcdRa8822GpioCreator {
public:
    /** @param factory makes the pins; must outlive create */
    explicit LcdRa8822GpioCreator(sysfs::ISysfsGpioFactory& factory);

    /**
     * @return a record of fourteen pins, made in the order of its members, neither exported nor configured
     * @throws std::exception from a factory that fails
     */
    std::unique_ptr<LcdRa8822Gpios> create() const;

private:
    sysfs::ISysfsGpioFactory& factory;
};

} // namespace frontpanelhw::lcd
