#pragma once

#include "panelsim/board/BoardConfig.h"
#include "panelsim/board/PanelView.h"

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

namespace panelsim {

/**
 * Model of the LCD's controller chip, behind its bus: registers, two pages of display memory, write cursor.
 *
 * The variants read the register select line differently:
 *
 *     register select      low                                     high
 *     RA8803, write        register number, then register value    display memory
 *     RA8806, write        value of the register last numbered     register number
 *     both, read           value of the register last numbered     status byte
 *
 * On the RA8806 display memory is register 0xB0. After a memory write the cursor stands one column on, in the same
 * row also past the visible end. At power-up the memory holds garbage, and a reset leaves it alone.
 */
class LcdChip {
public:
    static constexpr std::size_t columns = 25; ///< of the fitted glass
    static constexpr std::size_t rows = 3;     ///< of the fitted glass
    static constexpr unsigned char ra8803Id = 0xC9;

    explicit LcdChip(ChipVariant variant);

    /** Brings the registers to their reset values. */
    void reset();

    /** A write cycle. */
    void write(bool registerSelect, unsigned char value);

    /** A read cycle. @return the byte that the chip puts on the bus */
    unsigned char read(bool registerSelect);

    /** @return a register as it would read back */
    unsigned char registerValue(unsigned char reg) const;

    /** @return whether the register that tells the variants apart was read since the last reset */
    bool identified() const { return identifiedSinceReset; }

    bool displayOn() const;

    /** @return 0 to 31, empty for the RA8806, whose contrast is not set through a register */
    std::optional<unsigned> contrast() const;

    /** @return the glass's lines, blank outside the text area that the registers describe */
    std::vector<std::vector<LcdCell>> shown() const;

private:
    static constexpr std::size_t memoryColumns = 256;
    static constexpr std::size_t memoryRows = 16;
    using Page = std::array<LcdCell, memoryColumns * memoryRows>;

    void writeRegister(unsigned char value);
    void writeMemory(unsigned char code);
    bool isWritten(std::size_t page) const;

    ChipVariant variant;
    std::array<unsigned char, 256> registers{};
    std::array<Page, 2> pages{};
    unsigned char selected = 0;
    bool valueExpected = false;
    bool identifiedSinceReset = false;
};

} // namespace panelsim
