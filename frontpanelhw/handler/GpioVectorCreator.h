#pragma once

#include "frontpanelhw/Export.h"
#include "sysfs/ISysfsGpio.h"
#include "sysfs/ISysfsGpioFactory.h"
#include "sysfs/PinDirectionEn.h"

#include <memory>
#include <vector>

namespace frontpanelhw::handler {

/**
 * Creates and owns a run of pins with consecutive GPIO numbers.
 *
 * The vector that the create operations return lives as long as the creator; creating again replaces its pins in
 * place. Nothing here catches: an exception of a pin or of the factory reaches the caller, and the pins made so far
 * are kept until they are released or the creator is destroyed. Not to be changed while another thread uses the pins.
 */
class FRONTPANELHW_EXPORT GpioVectorCreator {
public:
    /**
     * Touches no pin yet.
     * @param factory   makes the pins; must outlive every create operation
     * @param firstGpio GPIO number of pin 0
     * @param count     number of pins
     */
    GpioVectorCreator(const sysfs::ISysfsGpioFactory& factory, unsigned firstGpio, unsigned count);

    /** Deletes the pins without calling their deinit. */
    ~GpioVectorCreator();

    GpioVectorCreator(const GpioVectorCreator&) = delete;
    GpioVectorCreator& operator=(const GpioVectorCreator&) = delete;

    /** Releases the pins held, then creates and exports all pins, one after the other. */
    std::vector<std::unique_ptr<sysfs::ISysfsGpio>>& createOnlyExported();

    /** As createOnlyExported, then configures every pin alike; a pin that returns false is ignored. */
    std::vector<std::unique_ptr<sysfs::ISysfsGpio>>& createAndInit(bool inverted, sysfs::PinDirectionEn direction,
                                                                   bool initialValue);

    /** Calls deinit on every pin held, then deletes them all. */
    void deinit();

private:
    const sysfs::ISysfsGpioFactory& factory;
    std::vector<std::unique_ptr<sysfs::ISysfsGpio>> gpios;
    unsigned firstGpio;
    unsigned count;
};

} // namespace frontpanelhw::handler
