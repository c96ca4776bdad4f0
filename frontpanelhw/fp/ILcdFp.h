#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/drawing/DisplayLine.h"
#include "frontpanelhw/fp/IFp.h"

namespace frontpanelhw::fp {

/**
 * A front panel that also has a text LCD with two pages of display memory: one is shown, the other one is written.
 *
 * Display operations block the caller for the waits of the bus. They return true when every step succeeded. A pin that
 * throws has been reported on standard error; a display that did not come up refuses everything without a message.
 */
class FRONTPANELHW_EXPORT ILcdFp : public IFp {
public:
    /** Starts erasing the page that is being written; does not wait for the chip to finish. */
    virtual bool clear() = 0;

    /** @return characters per line */
    virtual unsigned getChars() const = 0;

    /** @return number of lines */
    virtual unsigned getLines() const = 0;

    /**
     * Writes a line of text, from column 0, into the page that is being written. The text is not clipped to the
     * display; of each code unit the low 8 bits are the character's code.
     */
    virtual bool printLine(unsigned line, const drawing::DisplayLine& text) = 0;

    /** Writes every line of the buffer, whatever becomes of the others, then shows the page. */
    virtual bool printBuffer(const drawing::DisplayBuffer& buffer) = 0;

    /**
     * Resets the controller chip, which takes at least 362 ms, and switches the backlight off. The chip's registers are
     * then at their reset values, which no operation here replaces: to show text again, construct the panel anew.
     */
    virtual bool resetController() = 0;

    /** Shows the page that was being written and goes on writing into the other one. */
    virtual bool swapPage() = 0;

    /** Switches the display output on or off. */
    virtual bool enable(bool on) = 0;
};

} // namespace frontpanelhw::fp
