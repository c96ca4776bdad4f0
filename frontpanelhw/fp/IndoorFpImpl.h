#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/fp/LcdFp.h"
#include "frontpanelhw/lcd/LcdRa8822.h"
#include "frontpanelhw/lcd/LcdRa8822Gpios.h"
#include "sysfs/ISysfsGpioFactory.h"

#include <functional>
#include <memory>
#include <vector>

namespace frontpanelhw::fp {

/** @return whether the list, the same one that names the active-low LEDs, contains the backlight's GPIO number */
FRONTPANELHW_EXPORT bool isBacklightInverted(unsigned backlightGpioNumber, const std::vector<unsigned>& invertedLeds);

/** The indoor panel on any pin factory: keys, LEDs and the LCD with its bus driver, profile and controller. */
class FRONTPANELHW_EXPORT IndoorFpImpl : public LcdFp {
public:
    /**
     * Builds the panel; the LCD comes up with an empty page, which takes at least 362 ms. Polling is not started.
     *
     * A pin of the LCD that refuses its configuration or fails in the reset is reported on standard error, and the
     * panel is built all the same: display operations then return false and isRunning stays false. A chip that does
     * not respond only causes warnings on standard output; operations then return true.
     * @param factory         makes the pins; used during construction only
     * @param keyGpioBase     GPIO number of key 0
     * @param ledGpioBase     GPIO number of LED 0; the number right after the last LED is the backlight's
     * @param lcdGpioBase     GPIO number of LCD data line 0; data lines 1 to 7, register select, chip select, read
     *                        strobe, write strobe and reset follow
     * @param keyCount        number of keys
     * @param ledCount        number of LEDs
     * @param invertedLeds    indexes of LEDs whose pins are active-low, and the backlight's GPIO number if it is
     * @param ledsInitiallyOn indexes of LEDs that are on after construction
     * @throws std::exception from a pin that fails while it is created, exported or configured
     */
    IndoorFpImpl(sysfs::ISysfsGpioFactory& factory, unsigned keyGpioBase, unsigned ledGpioBase, unsigned lcdGpioBase,
                 unsigned keyCount, unsigned ledCount, const std::vector<unsigned>& invertedLeds,
                 const std::vector<unsigned>& ledsInitiallyOn);

    /** Stops polling and deletes the pins; LEDs and display stay as they are. */
    ~IndoorFpImpl() override;

    /** Binds the LCD's pins to their GPIO numbers; called by the constructor only. */
    void exportLcdGpios(unsigned lcdGpioBase, unsigned backlightGpioNumber);

    /**
     * Brings the display up as the constructor does, on the pins that there are: configures them, resets the chip,
     * identifies it, writes all its registers and clears both pages, which takes at least 362 ms. Display, backlight
     * and contrast are then as after construction. Keys, callback and LEDs go on meanwhile.
     *
     * A pin that fails is reported on standard error. When one fails in its configuration or in the reset, display
     * operations return false and isRunning is false until a restart succeeds.
     * @return true when the chip was reset and all writes succeeded; reads of the chip's identity and status that
     *         failed are only reported, and make another restart necessary
     */
    bool restartDisplay();

    void connectAnyKeyChangedCb(const std::function<void(unsigned, bool)>& cb) override;
    bool setLed(unsigned index, bool on) override;
    void setAllLeds(bool on) override;
    void stop() override;
    bool isRunning() override;
    unsigned getChars() const override;
    unsigned getLines() const override;
    bool enable(bool on) override;

private:
    std::unique_ptr<lcd::LcdRa8822Gpios> gpios;
    std::unique_ptr<lcd::LcdRa8822> lcd;
};

} // namespace frontpanelhw::fp
