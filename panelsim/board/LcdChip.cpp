#include "panelsim/board/LcdChip.h"

namespace panelsim {

namespace {

constexpr unsigned char modeRegister = 0x00;
constexpr unsigned char drawingRegister = 0x10;
constexpr unsigned char pageRegister = 0x12;
constexpr unsigned char textWidthRegister = 0x20;
constexpr unsigned char textHeightRegister = 0x30;
constexpr unsigned char cursorColumnRegister = 0x60;
constexpr unsigned char cursorRowRegister = 0x70;
constexpr unsigned char ra8806MemoryRegister = 0xB0;
constexpr unsigned char contrastRegister = 0xD0;
constexpr unsigned char memoryControlRegister = 0xF0;

constexpr unsigned displayOnBit = 0x04;
constexpr unsigned drawingBit = 0x20;
constexpr unsigned clearBit = 0x08;
constexpr unsigned contrastBits = 0x1F;
constexpr unsigned pixelRowsPerLine = 16;
constexpr unsigned char idleStatus = 0x40;
constexpr unsigned char firstPageWrittenAndShown = 0x11;

/** Bits of the RA8803's registers that show the chip's state and so read back otherwise than they were written. */
unsigned stateBits(unsigned char reg)
{
    switch (reg) {
    case 0xA0:
        return 0xF0;
    case 0xC0:
        return 0xCF;
    case 0xC1:
        return 0xF3;
    default:
        return 0;
    }
}

} // namespace

LcdChip::LcdChip(ChipVariant chipVariant) : variant(chipVariant)
{
    for (std::size_t i = 0; i < pages[0].size(); ++i) {
        pages[0][i] = LcdCell{static_cast<unsigned char>('!' + i % 90), i % 3 == 0};
    }
    pages[1] = pages[0];
    reset();
}

void LcdChip::reset()
{
    registers.fill(0);
    registers[modeRegister] = variant == ChipVariant::Ra8803 ? ra8803Id : 0;
    registers[pageRegister] = firstPageWrittenAndShown;
    selected = 0;
    valueExpected = false;
    identifiedSinceReset = false;
}

void LcdChip::write(bool registerSelect, unsigned char value)
{
    if (variant == ChipVariant::Ra8806) {
        if (registerSelect) {
            selected = value;
        } else if (selected == ra8806MemoryRegister) {
            writeMemory(value);
        } else {
            writeRegister(value);
        }
    } else if (registerSelect) {
        valueExpected = false;
        writeMemory(value);
    } else if (valueExpected) {
        valueExpected = false;
        writeRegister(value);
    } else {
        valueExpected = true;
        selected = value;
    }
}

unsigned char LcdChip::read(bool registerSelect)
{
    valueExpected = false;
    identifiedSinceReset |= !registerSelect && selected == modeRegister;
    return registerSelect ? idleStatus : registerValue(selected);
}

unsigned char LcdChip::registerValue(unsigned char reg) const
{
    const unsigned state = variant == ChipVariant::Ra8803 ? stateBits(reg) : 0;
    return static_cast<unsigned char>(registers[reg] | state);
}

bool LcdChip::displayOn() const
{
    return (registers[modeRegister] & displayOnBit) != 0;
}

std::optional<unsigned> LcdChip::contrast() const
{
    if (variant == ChipVariant::Ra8806) {
        return std::nullopt;
    }
    return registers[contrastRegister] & contrastBits;
}

LcdCell LcdChip::shownCell(std::size_t column, std::size_t row) const
{
    const bool inTextArea =
        column <= registers[textWidthRegister] && row * pixelRowsPerLine <= registers[textHeightRegister];
    const unsigned shownPages = registers[pageRegister] >> 4U & 3U;
    if (!inTextArea || shownPages == 0) {
        return LcdCell();
    }
    return pages[(shownPages & 1U) != 0 ? 0 : 1].at(row * memoryColumns + column);
}

void LcdChip::writeRegister(unsigned char value)
{
    registers[selected] = value;
    if (selected == memoryControlRegister && (value & clearBit) != 0) {
        clearMemory();
        registers[selected] = static_cast<unsigned char>(value & ~clearBit);
    }
}

void LcdChip::writeMemory(unsigned char code)
{
    const std::size_t row = registers[cursorRowRegister] / pixelRowsPerLine;
    const std::size_t column = registers[cursorColumnRegister]++;
    const LcdCell cell{code, drawsInverted()};
    onWrittenPages([&](Page& page) { page[row * memoryColumns + column] = cell; });
}

void LcdChip::clearMemory()
{
    onWrittenPages([](Page& page) { page.fill(LcdCell()); });
}

bool LcdChip::drawsInverted() const
{
    const bool bitSet = (registers[drawingRegister] & drawingBit) != 0;
    return variant == ChipVariant::Ra8803 ? !bitSet : bitSet;
}

template <typename Action>
void LcdChip::onWrittenPages(Action action)
{
    for (std::size_t i = 0; i < pages.size(); ++i) {
        if ((registers[pageRegister] >> i & 1U) != 0) {
            action(pages[i]);
        }
    }
}

} // namespace panelsim
