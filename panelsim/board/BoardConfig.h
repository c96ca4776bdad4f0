#pragma once

#include <chrono>
#include <vector>

namespace panelsim {

/** Variants of the LCD's controller chip. */
enum class ChipVariant { Ra8803, Ra8806 };

/** What is wired where on a simulated board. Indexes count from 0; GPIO numbers are those that pins are exported by. */
struct BoardConfig {
    unsigned panelId = 15;                   ///< level of the four ID lines, bit 0 first; 15 = indoor, 5 = outdoor
    bool hasLcd = true;                      ///< whether the LCD and its fourteen lines exist
    ChipVariant chip = ChipVariant::Ra8806;  ///< the LCD's controller
    unsigned idGpioBase = 4;                 ///< first of the four ID lines
    unsigned keyGpioBase = 10;               ///< line of key 0
    unsigned ledGpioBase = 20;               ///< line of LED 0; the backlight's is the one after the last LED
    unsigned lcdGpioBase = 40;               ///< data line 0 of the LCD, then its other twelve
    unsigned keyCount = 3;                   ///< keys, each high while it is pressed
    unsigned ledCount = 8;                   ///< LEDs
    std::vector<unsigned> invertedLeds = {}; ///< indexes of LEDs that light when their line is low
    bool backlightInverted = false;          ///< whether the backlight lights when its line is low
    /** Shortest strobe that the bus takes, cabling included; 0 accepts any. */
    std::chrono::nanoseconds shortestStrobe = std::chrono::microseconds(10);
};

/** @return an outdoor panel: two keys, eight LEDs, no LCD */
inline BoardConfig outdoorBoard()
{
    BoardConfig config;
    config.panelId = 5;
    config.hasLcd = false;
    config.keyCount = 2;
    config.ledCount = 8;
    return config;
}

} // namespace panelsim
