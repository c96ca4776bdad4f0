#pragma once

#include "panelsim/board/Simulation.h"

#include <chrono>
#include <string>

/** Does to a simulated indoor panel what an application does. */
class FakeApplication {
public:
    explicit FakeApplication(panelsim::Simulation& itsSimulation) : simulation(itsSimulation) {}

    /** @return a board whose bus takes short strobes */
    static panelsim::BoardConfig boardConfig()
    {
        panelsim::BoardConfig config;
        config.shortestStrobe = std::chrono::nanoseconds(0);
        return config;
    }
    /** Empties it, too. */
    void turnDisplayOn()
    {
        writeRegister(0x20, 24);
        writeRegister(0x30, 47);
        writeRegister(0xF0, 0x08);
        writeRegister(0x00, 0x04);
    }
    void turnDisplayOff() { writeRegister(0x00, 0); }

    /** @param codes of the chip's characters */
    void show(unsigned char line, const std::string& codes, bool inverted = false)
    {
        writeRegister(0x10, inverted ? 0x20 : 0);
        writeRegister(0x70, static_cast<unsigned char>(16 * line));
        writeRegister(0x60, 0);
        write(true, 0xB0);
        for (const char code : codes) {
            write(false, static_cast<unsigned char>(code));
        }
    }
    void light(unsigned led) { simulation.board.makeOutput(20 + led, true); }
    void print(const std::string& text) { simulation.log.append(panelsim::LogLine::Source::Output, text); }
    void exit(int status) { simulation.app = panelsim::AppState{panelsim::AppState::Phase::Exited, status}; }
    void crash() { simulation.app = panelsim::AppState{panelsim::AppState::Phase::Killed, 11}; }

    /** Selects the chip during a strobe, which is one fault. */
    void disturbBus()
    {
        simulation.board.makeOutput(writeStrobe, false);
        simulation.board.makeOutput(chipSelect, false);
        simulation.board.makeOutput(writeStrobe, true);
        simulation.board.makeOutput(chipSelect, true);
    }

private:
    static constexpr unsigned firstData = 40;
    static constexpr unsigned registerSelect = 48;
    static constexpr unsigned chipSelect = 49;
    static constexpr unsigned writeStrobe = 51;

    void writeRegister(unsigned char reg, unsigned char value)
    {
        write(true, reg);
        write(false, value);
    }
    void write(bool select, unsigned char byte)
    {
        for (unsigned bit = 0; bit < 8; ++bit) {
            simulation.board.makeOutput(firstData + bit, (byte >> bit & 1U) != 0);
        }
        simulation.board.makeOutput(registerSelect, select);
        simulation.board.makeOutput(chipSelect, false);
        simulation.board.makeOutput(writeStrobe, false);
        simulation.board.makeOutput(writeStrobe, true);
        simulation.board.makeOutput(chipSelect, true);
    }

    panelsim::Simulation& simulation;
};
