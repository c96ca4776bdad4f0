#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/drawing/DisplayLine.h"
#include "frontpanelhw/lcd/ILcd.h"

namespace frontpanelhw::lcd {

/**
 * A text controller for the LCD. Operations block the caller for the waits of the bus and return true when all their
 * steps succeeded. While the bus is not initialised, only init, deinit, resetController and isInitialized act; the
 * other operations return false. No lock is acquired.
 */
class FRONTPANELHW_EXPORT LcdControllerBase {
public:
    /** Makes no bus access. @param lcd the bus; must outlive the controller */
    explicit LcdControllerBase(ILcd& lcd);

    virtual ~LcdControllerBase();

    LcdControllerBase(const LcdControllerBase&) = delete;
    LcdControllerBase& operator=(const LcdControllerBase&) = delete;

    /** Starts erasing the page that is being written; does not wait for the chip to finish. */
    virtual bool clear() = 0;

    /** Takes the bus out of use; no pin is touched. */
    virtual bool deinit();

    /** Programs the chip and prepares the display; returns false while the bus is not initialised. */
    virtual bool init() = 0;

    /** Resets the chip; what the controller remembers of it stays. */
    virtual bool resetController();

    /** Writes a line of text, from column 0, into the page that is being written; stops at the first failure. */
    virtual bool printLine(unsigned line, const drawing::DisplayLine& text) = 0;

    /** Switches the display output on or off. */
    virtual bool enable(bool on) = 0;

    /**
     * Moves the chip's write cursor; no bus access when it was last sent there, whether or not that succeeded.
     * @param column 0 to 255, of which the display shows the first ILcd::getChars
     * @param line   0 to 15, of which the display shows the first ILcd::getLines
     */
    virtual bool setCursor(unsigned column, unsigned line) = 0;

    /** Sets the contrast. @param percent 0 to 100, others are refused */
    virtual bool setContrast(unsigned percent) = 0;

    /** @return whether the bus is initialised */
    virtual bool isInitialized();

    /** Shows the page that was being written and goes on writing into the other one. */
    virtual bool swapPage() = 0;

    /** Switches the backlight. */
    virtual bool setBacklight(bool on);

protected:
    ILcd& lcd; ///< the bus given at construction
};

} // namespace frontpanelhw::lcd
