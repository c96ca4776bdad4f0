#pragma once

#include "frontpanelhw/lcd/ILcd.h"

#include <cstdint>
#include <initializer_list>

namespace frontpanelhw::lcd {

/** A register of the chip, what to write to it and which bits have to read back as written. */
struct RegisterSetting {
    unsigned char reg;
    unsigned char value;
    unsigned char mask;
};

/** @return the registers' form of a width in pixels: cells of 8 pixels, less one */
constexpr unsigned char widthValue(std::uint32_t pixels)
{
    return static_cast<unsigned char>(pixels / 8 - 1);
}

/** @return the registers' form of a height in pixel rows: rows less one */
constexpr unsigned char heightValue(std::uint32_t rows)
{
    return static_cast<unsigned char>(rows - 1);
}

/** Writes the settings in order, each with its read-back check, even if others fail. */
bool writeRegisters(ILcd& lcd, std::initializer_list<RegisterSetting> settings);

} // namespace frontpanelhw::lcd
