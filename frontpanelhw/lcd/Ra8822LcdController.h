#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/drawing/DisplayLine.h"
#include "frontpanelhw/lcd/ILcd.h"
#include "frontpanelhw/lcd/IRaController.h"
#include "frontpanelhw/lcd/LcdControllerBase.h"

#include <cstdint>
#include <memory>

namespace frontpanelhw::lcd {

/**
 * Text controller on a chip of the RA8822 family: one character code per cell, which the chip draws itself, and two
 * pages of display memory. It remembers where it sent the chip's cursor and writes only what changes.
 */
class FRONTPANELHW_EXPORT Ra8822LcdController : public LcdControllerBase {
public:
    /**
     * Makes no bus access.
     * @param lcd          the bus; must outlive the controller
     * @param raController the profile of the chip's variant
     */
    Ra8822LcdController(ILcd& lcd, std::unique_ptr<IRaController> raController);

    ~Ra8822LcdController() override;

    bool clear() override;

    /**
     * Writes the start-up registers and prepares the display, every step even if others fail, and writes a log line
     * with the chip's status byte.
     * @return true when the bus is initialised and all writes succeeded; the status read does not count
     */
    bool init() override;

    bool printLine(unsigned line, const drawing::DisplayLine& text) override;
    bool enable(bool on) override;
    bool setCursor(unsigned column, unsigned line) override;
    bool setContrast(unsigned percent) override;
    bool swapPage() override;

    /** Clears both pages, swaps them, and switches display (at contrast 50) and backlight on. */
    bool prepareDisplay();

    /** Sets the page that the chip writes and the page that it shows, each 1 or 2. */
    bool setPageConfig(unsigned writePage, unsigned displayPage);

private:
    std::unique_ptr<IRaController> raController;
    std::uint32_t writePage = 1;
    std::uint32_t displayPage = 2;
    std::uint32_t cursorColumn;
    std::uint32_t cursorLine;
};

} // namespace frontpanelhw::lcd
