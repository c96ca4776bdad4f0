#pragma once

#include "frontpanelhw/Export.h"

namespace frontpanelhw::lcd {

/**
 * The register bus to the LCD's controller chip.
 *
 * Operations block the caller for the waits of the bus and return true on success. A pin that fails is reported on
 * standard error; before initialisation most operations return false without a message. The bus has no lock: one
 * operation at a time.
 */
class FRONTPANELHW_EXPORT ILcd {
public:
    virtual ~ILcd() = default;

    /** Resets the chip, which takes at least 362 ms; also works before initialisation. */
    virtual bool resetController() = 0;

    /** Marks the bus as not initialised; no pin is touched. @return true */
    virtual bool deinit() = 0;

    /** Switches the backlight. @return the result of the pin */
    virtual bool setBacklight(bool on) = 0;

    /** Writes a register. */
    virtual bool writeCmd(unsigned char reg, unsigned char value) = 0;

    /** Reads a register into value. */
    virtual bool readCmd(unsigned char reg, unsigned char& value) = 0;

    /** Reads the status byte into status. */
    virtual bool readStatus(unsigned char& status) = 0;

    /**
     * Writes a register and reads it back. A difference is reported as a warning on standard output.
     * @param reg   the register
     * @param value what to write to it
     * @param mask  the bits that must read back as written
     * @return true when both accesses succeeded and these bits are as written
     */
    virtual bool writeCmdAndVerify(unsigned char reg, unsigned char value, unsigned char mask) = 0;

    /** Writes a byte into display memory at the chip's cursor, which moves one cell on. */
    virtual bool writeData(unsigned char value) = 0;

    /** @return true between a successful initialisation and deinit */
    virtual bool isInitialized() = 0;

    /** @return number of lines of the fitted display */
    virtual unsigned getLines() const = 0;

    /** @return characters per line of the fitted display */
    virtual unsigned getChars() const = 0;
};

} // namespace frontpanelhw::lcd
