#pragma once

#include "frontpanelhw/Export.h"
#include "frontpanelhw/lcd/ILcd.h"
#include "frontpanelhw/lcd/LcdRa8822Gpios.h"
#include "sysfs/PinDirectionEn.h"

#include <cstdint>

namespace frontpanelhw::lcd {

/**
 * Bus driver of the RA8822 family: produces each bus cycle by setting and reading the LCD's pins, with sleeps between
 * the edges. The variants RA8803 and RA8806 differ in the meaning of the register select line.
 *
 * An exception of a pin that derives from std::exception ends the operation: it is reported on standard error, the
 * pins stay where they are and the operation returns false. Only setBacklight uses the result of a pin's setValue.
 */
class FRONTPANELHW_EXPORT LcdRa8822 : public ILcd {
public:
    /**
     * Touches no pin.
     * @param gpios             the pins, exported before init is called; must outlive the driver
     * @param backlightInverted true when the backlight is active-low
     */
    LcdRa8822(LcdRa8822Gpios& gpios, bool backlightInverted);

    /** Touches no pin. */
    ~LcdRa8822() override;

    LcdRa8822(const LcdRa8822&) = delete;
    LcdRa8822& operator=(const LcdRa8822&) = delete;

    /**
     * Configures the pins, resets the chip and identifies it, with a log line. An identification that cannot be read
     * counts as byte 0, that is as an RA8806.
     * @return false when a pin refused its configuration or the reset failed; the driver's state is then unchanged
     * @throws std::exception from a pin that fails while it is configured
     */
    bool init();

    static constexpr unsigned ra8803 = 0; ///< lcdType of an RA8803
    static constexpr unsigned ra8806 = 1; ///< lcdType of an RA8806

    /** @return ra8803 or ra8806, as the chip is driven; final after init */
    unsigned lcdType() const;

    /** @return whether the backlight is active-low */
    bool hasInvertedBacklight() const { return backlightInverted; }

    /** @name Bus primitives: only getData checks for initialisation; exceptions of pins pass. */
    ///@{
    /** Switches all eight data lines, line 0 first; outputs take the levels last set. */
    void setDataDirection(sysfs::PinDirectionEn direction);
    /** Puts a byte on the data lines, bit 0 first. They must be outputs. */
    void setData(unsigned char value);
    /** @return the byte on the data lines, 0 when not initialised */
    unsigned char getData();
    /** Sends a register number to the chip: one address cycle. The data lines must be outputs. */
    void setRegister(unsigned char reg);
    ///@}

    bool resetController() override;
    bool deinit() override;
    bool setBacklight(bool on) override;
    bool writeCmd(unsigned char reg, unsigned char value) override;
    bool readCmd(unsigned char reg, unsigned char& value) override;
    bool readStatus(unsigned char& status) override;
    bool writeCmdAndVerify(unsigned char reg, unsigned char value, unsigned char mask) override;
    bool writeData(unsigned char value) override;
    bool isInitialized() override;
    unsigned getLines() const override;
    unsigned getChars() const override;

private:
    FRONTPANELHW_HIDDEN void ensureDataOutput();
    FRONTPANELHW_HIDDEN void writeByte(unsigned char byte, bool registerSelect);
    FRONTPANELHW_HIDDEN void strobeWrite();

    LcdRa8822Gpios& gpios;
    bool initialized = false;
    std::uint32_t type = ra8803;
    bool backlightInverted;
    sysfs::PinDirectionEn dataDirection = sysfs::PinDirectionEn::Input;
};

} // namespace frontpanelhw::lcd
