#pragma once

#include "sysfs/ISysfsGpioFactory.h"

#include <memory>

namespace bench {

constexpr unsigned keyBase = 100;
constexpr unsigned lcdBase = 40;
constexpr unsigned ledBase = 5000;     ///< with the backlight after the LEDs
constexpr unsigned char ra8803 = 0xC9; ///< identification byte of each chip
constexpr unsigned char ra8806 = 0x00;

/** Makes pins that do nothing: they accept every call, and their levels never change. */
class IdlePins : public sysfs::ISysfsGpioFactory {
public:
    /** @param byte what the data lines of the LCD, from GPIO lcdBase on, always read */
    explicit IdlePins(unsigned char byte) : lcdByte(byte) {}

    std::unique_ptr<sysfs::ISysfsGpio> create() const override;

private:
    unsigned char lcdByte;
};

} // namespace bench
