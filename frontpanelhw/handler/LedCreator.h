#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/handler/GpioVectorCreator.h"
#include "sysfs/ISysfsGpio.h"
#include "sysfs/ISysfsGpioFactory.h"

#include <memory>
#include <vector>

namespace frontpanelhw::handler {

/** Creates and owns the LED pins of a panel: outputs, each with its own polarity and initial state. */
class FRONTPANELHW_EXPORT LedCreator {
public:
    /**
     * Touches no pin yet.
     * @param factory   makes the pins; must outlive create
     * @param firstGpio GPIO number of LED 0
     * @param count     number of LEDs
     */
    LedCreator(sysfs::ISysfsGpioFactory& factory, unsigned firstGpio, unsigned count);

    /** Deletes the pins; the LEDs are not switched off. */
    ~LedCreator();

    LedCreator(const LedCreator&) = delete;
    LedCreator& operator=(const LedCreator&) = delete;

    /**
     * Creates and exports the LED pins and configures each as an output. Both lists hold LED indexes; entries past
     * the last LED and repeated ones have no effect. A pin that returns false is ignored, an exception is not caught.
     * @param invertedLeds    LEDs whose pins are active-low
     * @param ledsInitiallyOn LEDs that are on from the start
     * @return the pins, index = LED index; valid as long as the creator lives
     */
    std::vector<std::unique_ptr<sysfs::ISysfsGpio>>& create(const std::vector<unsigned>& invertedLeds,
                                                            const std::vector<unsigned>& ledsInitiallyOn);

private:
    std::unique_ptr<GpioVectorCreator> gpioCreator;
};

} // namespace frontpanelhw::handler
