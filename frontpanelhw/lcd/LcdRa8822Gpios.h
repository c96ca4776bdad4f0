#pragma once

#include "frontpanelhw/Export.h"
#include "sysfs/ISysfsGpio.h"

#include <array>
#include <memory>

namespace frontpanelhw::lcd {

/**
 * The fourteen pins of the LCD. Levels are logical; chip select, both strobes and reset are active-low at the
 * connector, so that logical 1 means asserted. Destruction deletes the pins from the last member to the first.
 */
struct LcdRa8822Gpios {
    std::array<std::unique_ptr<sysfs::ISysfsGpio>, 8> dataGpios; ///< element i carries bit i of the bus byte
    std::unique_ptr<sysfs::ISysfsGpio> registerSelectGpio;       ///< selects what a cycle carries
    std::unique_ptr<sysfs::ISysfsGpio> chipSelectGpio;           ///< asserted for the whole of a bus cycle
    std::unique_ptr<sysfs::ISysfsGpio> readStrobeGpio;           ///< asserted while the chip drives the data lines
    std::unique_ptr<sysfs::ISysfsGpio> writeStrobeGpio;          ///< pulsed to latch a byte into the chip
    std::unique_ptr<sysfs::ISysfsGpio> resetGpio;                ///< asserted to hold the chip in reset
    std::unique_ptr<sysfs::ISysfsGpio> backlightGpio;            ///< logical 1 = on for either polarity
};

/**
 * Configures all fourteen pins as outputs at logical 0, even if others fail.
 * @param gpios             a record in which every member holds an exported pin
 * @param backlightInverted true makes the backlight pin active-low
 * @return true when the init of every pin returned true
 * @throws std::exception from a pin that fails; the pins after it are then not configured
 */
FRONTPANELHW_EXPORT bool initGpios(LcdRa8822Gpios& gpios, bool backlightInverted);

} // namespace frontpanelhw::lcd
