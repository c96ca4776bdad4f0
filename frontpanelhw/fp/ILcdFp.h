#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/drawing/DisplayLine.h"
#include "frontpanelhw/fp/IFp.h"

namespace frontpanelhw::fp {

/**
 * A front panel that also has a text LCD with two pages of display memory: one is shown, the other one is written.
 * After a swap, the page being written holds what it held before: write every line of it, or use printBuffer with a
 * buffer of the display's full size. The lamp test of start shows a filled page, which stays until the next one: print
 * after start.
 *
 * Display operations block the caller for the waits of the bus. They return true when every step succeeded. A pin that
 * throws is reported on standard error. When a pin refused its configuration or failed in the reset during
 * construction, display operations return false without a message; resetController still resets the chip before it
 * returns false. A chip that does not respond only causes warnings on standard output during construction; operations
 * then return true. A pin that returns false in a bus cycle has no effect on the result.
 *
 * After an operation that returned false, or a failure that the constructor or the lamp test reported on standard
 * error, chip and panel may differ: in the pages, the cursor and the inversion, in any register of the chip, and in the
 * direction of the data lines. To be certain that the display shows a page, bring it up again with
 * Indoor::restartDisplay, which keeps keys, callback and LEDs, and print the page again. Nothing less is certain:
 * printing again repairs most single failures but not all, and may return true although the page is wrong. A panel is
 * constructed again only if its constructor threw, or if another program has unexported one of its lines.
 */
class FRONTPANELHW_EXPORT ILcdFp : public IFp {
public:
    /**
     * Starts erasing the page that is being written; does not wait for the chip to finish, which may erase what is
     * printed right after.
     */
    virtual bool clear() = 0;

    /** @return characters per line */
    virtual unsigned getChars() const = 0;

    /** @return number of lines */
    virtual unsigned getLines() const = 0;

    /**
     * Writes a line of text, from column 0, into the page that is being written; of each code unit the low 8 bits are
     * the character's code. A text shorter than the line leaves the rest unchanged; one longer than getChars() goes on
     * beyond the line.
     * @param line not checked: 0 to getLines() - 1 are shown, 16 is line 0 again
     * @param text what to write
     */
    virtual bool printLine(unsigned line, const drawing::DisplayLine& text) = 0;

    /** Writes every line of the buffer, even if others fail, then shows the page. Clears nothing first. */
    virtual bool printBuffer(const drawing::DisplayBuffer& buffer) = 0;

    /**
     * Resets the controller chip, which takes at least 362 ms, and switches the backlight off. The chip's registers are
     * then at their reset values; to show text again, call Indoor::restartDisplay and print.
     */
    virtual bool resetController() = 0;

    /** Shows the page that was being written and goes on writing into the other one. */
    virtual bool swapPage() = 0;

    /** Switches the display output on or off. */
    virtual bool enable(bool on) = 0;
};

} // namespace frontpanelhw::fp
