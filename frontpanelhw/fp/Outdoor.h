#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/fp/FpBase.h"
#include "frontpanelhw/fp/IFp.h"

#include <functional>
#include <memory>

namespace frontpanelhw::fp {

/** The outdoor panel: two keys and eight LEDs, all active-high, on pins of sysfs::SysfsGpioFactory. */
class FRONTPANELHW_EXPORT Outdoor : public IFp {
public:
    /**
     * Creates and configures all pins; every LED is off and polling is not started.
     * @param keyGpioBase GPIO number of key 0, followed by key 1
     * @param ledGpioBase GPIO number of LED 0, followed by LED 1 to 7
     * @throws std::exception from a pin that fails while it is created, exported or configured
     */
    Outdoor(unsigned keyGpioBase, unsigned ledGpioBase);

    /** Stops polling and deletes the pins; the LEDs are not switched off. */
    ~Outdoor() override;

    Outdoor(const Outdoor&) = delete;
    Outdoor& operator=(const Outdoor&) = delete;

    void connectAnyKeyChangedCb(const std::function<void(unsigned, bool)>& cb) override;
    bool setLed(unsigned index, bool on) override;
    void setAllLeds(bool on) override;
    bool start(bool lampTest, unsigned lampTestSeconds) override;
    void stop() override;
    bool isRunning() override;

private:
    std::unique_ptr<FpBase> core;
};

} // namespace frontpanelhw::fp
