#pragma once

#include "panelsim/board/Board.h"

#include <chrono>
#include <string>

/** Does to a simulated indoor panel what an application does. */
class FakeApplication {
public:
    explicit FakeApplication(panelsim::Board& itsBoard) : board(itsBoard) {}

    /** @return a board whose bus takes short strobes */
    static panelsim::BoardConfig boardConfig()
    {
        panelsim::BoardConfig config;
        config.shortestStrobe = std::chrono::nanoseconds(0);
        return config;
    }
    /** Shows what the memory holds. */
    void turnDisplayOn()
    {
        writeRegister(0x20, 24);
        writeRegister(0x30, 47);
        writeRegister(0x00, 0x04);
    }
    void clear() { writeRegister(0xF0, 0x08); }

    /** @param codes of the chip's characters */
    void show(unsigned char line, const std::string& codes, bool inverted = false)
    {
        writeRegister(0x10, inverted ? 0x20 : 0);
        writeRegister(0x70, static_cast<unsigned char>(16 * line));
        writeRegister(0x60, 0);
        for (const char code : codes) {
            writeRegister(0xB0, static_cast<unsigned char>(code));
        }
    }
    void light(unsigned led, bool on = true) { board.makeOutput(board.getConfig().ledGpioBase + led, on); }
    void writeRegister(unsigned char reg, unsigned char value)
    {
        write(true, reg);
        write(false, value);
    }
    /** Selects the chip during a strobe, which is one fault. */
    void disturbBus()
    {
        board.makeOutput(writeStrobe, false);
        strobe();
    }

private:
    static constexpr unsigned chipSelect = 49;
    static constexpr unsigned writeStrobe = 51;

    void strobe()
    {
        board.makeOutput(chipSelect, false);
        board.makeOutput(writeStrobe, false);
        board.makeOutput(writeStrobe, true);
        board.makeOutput(chipSelect, true);
    }
    void write(bool select, unsigned char byte)
    {
        for (unsigned bit = 0; bit < 8; ++bit) {
            board.makeOutput(40 + bit, (byte >> bit & 1U) != 0);
        }
        board.makeOutput(48, select);
        strobe();
    }

    panelsim::Board& board;
};
