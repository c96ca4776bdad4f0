#pragma once

#include "frontpanelhw/Export.h"
#include "sysfs/ISysfsGpioFactory.h"

namespace frontpanelhw {

/** The panels that can be fitted. */
enum class FrontPanelType {
    Indoor = 0,  ///< keys, LEDs and LCD
    Outdoor = 1, ///< keys and LEDs only
    Unknown = 2  ///< the ID lines show no known panel
};

/**
 * Reads the panel ID from four consecutive lines, the first being bit 0.
 *
 * A line that cannot be read is reported on standard error and left out: the lines after it move down one bit.
 * The pins are deleted before the call returns.
 * @param factory    makes the four pins; used during the call only
 * @param idGpioBase GPIO number of the first ID line
 * @return the ID, 0 to 15
 * @throws std::exception from a pin that fails while it is created, exported or configured
 */
FRONTPANELHW_EXPORT unsigned readGpios(sysfs::ISysfsGpioFactory& factory, unsigned idGpioBase);

/**
 * Detects which panel is fitted: ID 15 is the indoor panel, ID 5 the outdoor one. Writes one log line.
 * Parameters and exceptions are those of readGpios.
 */
FRONTPANELHW_EXPORT FrontPanelType detectType(sysfs::ISysfsGpioFactory& factory, unsigned idGpioBase);

} // namespace frontpanelhw
