#include "panelsim/board/LcdChip.h"

#include <utility>

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

/** What differs between the variants, besides how they take a write cycle. */
struct Traits {
    unsigned char id;
    bool hasContrast;
    bool drawingBitInverts; ///< whether the drawing bit means inverted cells when it is set, or else when it is clear
    std::array<std::pair<unsigned char, unsigned>, 3>
        stateBits; ///< by register: show the chip's state, read back as set
};

constexpr Traits traitsOf(ChipVariant variant)
{
    switch (variant) {
    case ChipVariant::Ra8803:
        return {LcdChip::ra8803Id, true, false, {{{0xA0, 0xF0}, {0xC0, 0xCF}, {0xC1, 0xF3}}}};
    case ChipVariant::Ra8806:
        break;
    }
    return {0, false, true, {}};
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
    registers[modeRegister] = traitsOf(variant).id;
    registers[pageRegister] = firstPageWrittenAndShown;
    selected = 0;
    valueExpected = false;
    identifiedSinceReset = false;
}

void LcdChip::write(bool registerSelect, unsigned char value)
{
    switch (variant) {
    case ChipVariant::Ra8803:
        if (registerSelect) {
            writeMemory(value);
        } else if (valueExpected) {
            writeRegister(value);
        } else {
            selected = value;
        }
        valueExpected = !registerSelect && !valueExpected;
        break;
    case ChipVariant::Ra8806:
        if (registerSelect) {
            selected = value;
        } else if (selected == ra8806MemoryRegister) {
            writeMemory(value);
        } else {
            writeRegister(value);
        }
        break;
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
    unsigned value = registers[reg];
    for (const auto& [stateRegister, bits] : traitsOf(variant).stateBits) {
        value |= stateRegister == reg ? bits : 0;
    }
    return static_cast<unsigned char>(value);
}

bool LcdChip::displayOn() const
{
    return (registers[modeRegister] & displayOnBit) != 0;
}

std::optional<unsigned> LcdChip::contrast() const
{
    return traitsOf(variant).hasContrast ? std::optional(registers[contrastRegister] & contrastBits) : std::nullopt;
}

std::vector<std::vector<LcdCell>> LcdChip::shown() const
{
    const unsigned shownPages = registers[pageRegister] >> 4U & 3U;
    std::vector<std::vector<LcdCell>> lines(rows, std::vector<LcdCell>(columns));
    for (std::size_t row = 0; row < rows; ++row) {
        for (std::size_t column = 0; column < columns; ++column) {
            if (shownPages != 0 && column <= registers[textWidthRegister] &&
                row * pixelRowsPerLine <= registers[textHeightRegister]) {
                lines[row][column] = pages[(shownPages & 1U) != 0 ? 0 : 1][row * memoryColumns + column];
            }
        }
    }
    return lines;
}

void LcdChip::writeRegister(unsigned char value)
{
    registers[selected] = value;
    if (selected == memoryControlRegister && (value & clearBit) != 0) {
        registers[selected] = static_cast<unsigned char>(value & ~clearBit);
        for (std::size_t i = 0; i < pages.size(); ++i) {
            if (isWritten(i)) {
                pages[i].fill(LcdCell());
            }
        }
    }
}

void LcdChip::writeMemory(unsigned char code)
{
    const std::size_t row = registers[cursorRowRegister] / pixelRowsPerLine;
    const std::size_t column = registers[cursorColumnRegister]++;
    const bool bitSet = (registers[drawingRegister] & drawingBit) != 0;
    for (std::size_t i = 0; i < pages.size(); ++i) {
        if (isWritten(i)) {
            pages[i][row * memoryColumns + column] = {code, bitSet == traitsOf(variant).drawingBitInverts};
        }
    }
}

bool LcdChip::isWritten(std::size_t page) const
{
    return (registers[pageRegister] >> page & 1U) != 0;
}

} // namespace panelsim
