#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/drawing/DisplayLine.h"
#include "frontpanelhw/fp/FpBase.h"
#include "frontpanelhw/fp/ILcdFp.h"
#include "frontpanelhw/lcd/LcdControllerBase.h"
#include "sysfs/ISysfsGpioFactory.h"

#include <memory>
#include <vector>

namespace frontpanelhw::fp {

/**
 * Keys, LEDs and a text LCD, abstract. A derived class builds the LCD's controller, installs it and implements the
 * operations left abstract; applications use the ILcdFp base. start does the same through either base.
 */
class FRONTPANELHW_EXPORT LcdFp : public ILcdFp, public FpBase {
public:
    /** Builds the keys and LEDs with FpBase's parameters and exceptions; makes no LCD access. */
    LcdFp(sysfs::ISysfsGpioFactory& factory, unsigned keyGpioBase, unsigned keyCount, unsigned ledGpioBase,
          unsigned ledCount, const std::vector<unsigned>& invertedLeds, const std::vector<unsigned>& ledsInitiallyOn);

    /** Destroys the controller, without a call on it, then the keys and LEDs. */
    ~LcdFp() override;

    /**
     * Takes the controller in place of an earlier one, which is destroyed, and initialises it.
     * @return the result of its init, false for a null pointer
     */
    bool initController(std::unique_ptr<lcd::LcdControllerBase> controller);

    /** Switches the backlight. @return true when its pin accepted the level; false without a controller */
    bool setBacklight(bool on);

    /**
     * Sets the contrast; an RA8806 has none to set: true is returned and nothing changes.
     * @param percent 0 to 100, others are refused
     * @return true when the chip's register, if it has one, was written; false without a controller
     */
    bool setContrast(unsigned percent);

    /** Display test: shows a page of inverted spaces, lit by the backlight; results are dropped. */
    void fullfillDisplay();

    /** As IFp::start; the lamp test fills the display first, and it stays filled. */
    bool start(bool lampTest, unsigned lampTestSeconds) override;

    bool clear() override;
    bool printLine(unsigned line, const drawing::DisplayLine& text) override;
    bool printBuffer(const drawing::DisplayBuffer& buffer) override;
    bool resetController() override;
    bool swapPage() override;

protected:
    std::unique_ptr<lcd::LcdControllerBase> controller; ///< null before initController
};

} // namespace frontpanelhw::fp
