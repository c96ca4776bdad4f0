#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/fp/IFp.h"
#include "frontpanelhw/handler/KeyHandler.h"
#include "frontpanelhw/handler/LedCreator.h"
#include "sysfs/ISysfsGpio.h"
#include "sysfs/ISysfsGpioFactory.h"

#include <functional>
#include <memory>
#include <vector>

namespace frontpanelhw::fp {

/**
 * Keys and LEDs of a panel. An LED is on at logical 1; its polarity lives in its pin.
 *
 * LED operations take no lock: the caller serialises them.
 */
class FRONTPANELHW_EXPORT FpBase : public IFp {
public:
    /**
     * Creates and configures all pins and reads the keys once; polling is not started.
     * @param factory         makes the pins; used during construction only
     * @param keyGpioBase     GPIO number of key 0
     * @param keyCount        number of keys
     * @param ledGpioBase     GPIO number of LED 0
     * @param ledCount        number of LEDs
     * @param invertedLeds    indexes of LEDs whose pins are active-low
     * @param ledsInitiallyOn indexes of LEDs that are on after construction
     * @throws std::exception from a pin that fails while it is created, exported or configured
     */
    FpBase(sysfs::ISysfsGpioFactory& factory, unsigned keyGpioBase, unsigned keyCount, unsigned ledGpioBase,
           unsigned ledCount, const std::vector<unsigned>& invertedLeds, const std::vector<unsigned>& ledsInitiallyOn);

    /** Stops polling and deletes the pins; the LEDs are not switched off. */
    ~FpBase() override;

    FpBase(const FpBase&) = delete;
    FpBase& operator=(const FpBase&) = delete;

    void connectAnyKeyChangedCb(const std::function<void(unsigned, bool)>& cb) override;
    bool setLed(unsigned index, bool on) override;
    void setAllLeds(bool on) override;
    bool start(bool lampTest, unsigned lampTestSeconds) override;
    void stop() override;
    bool isRunning() override;

    /** Appends the remembered state of every LED; called by the constructor only. */
    void initLedStateVector(const std::vector<unsigned>& ledsInitiallyOn);

private:
    std::unique_ptr<handler::LedCreator> ledCreator;
    std::vector<std::unique_ptr<sysfs::ISysfsGpio>>* leds;
    std::unique_ptr<handler::KeyHandler> keyHandler;
    std::vector<bool> ledStates;
    bool allLedsOn = false;
};

} // namespace frontpanelhw::fp
