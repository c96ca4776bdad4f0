#pragma once

#include "frontpanelhw/Export.h"

#include <cstdint>

namespace frontpanelhw::lcd {

/** Fixed geometry and mode of the panel's LCD, as the start-up registers of the controller chip need them. */
struct LcdConfig {
    std::uint32_t textAreaWidth;  ///< pixels: 25 characters of 8
    std::uint32_t textAreaHeight; ///< pixel rows: 3 lines of 16
    std::uint32_t displayWidth;   ///< pixels
    std::uint32_t displayHeight;  ///< pixel rows
    bool reg00Bit0;               ///< bit 0 of register 0x00; the RA8803 takes its inverse
    bool reg00Bit1;               ///< bit 1 of register 0x00
    std::uint32_t reg80Value;     ///< register 0x80
    std::uint32_t reg00Bit3;      ///< bit 3 of register 0x00
    std::uint32_t regF0Bit2;      ///< bit 2 of register 0xF0
    std::uint32_t reg01Bits;      ///< register 0x01 from bit 1 upwards; RA8803 only
};

/** @return the same configuration on every call */
FRONTPANELHW_EXPORT LcdConfig getConfig();

} // namespace frontpanelhw::lcd
