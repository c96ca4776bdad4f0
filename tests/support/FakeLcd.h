#pragma once

#include "frontpanelhw/lcd/ILcd.h"

#include <array>
#include <set>
#include <string>

/**
 * An LCD bus that only tells what is done on it: "w 12 A1" a register write, "v 12 A1 FF" one with read-back check and
 * its mask, "r 10" a register read, "d 41" display data, "s" the status read, "reset", "deinit", "backlight 1".
 */
class FakeLcd : public frontpanelhw::lcd::ILcd {
public:
    bool initialized = true;
    unsigned char status = 0x40;
    std::array<unsigned char, 256> registers{};
    std::set<std::string> failing; ///< accesses that answer false

    /** Takes the accesses since the last call, with a comma between them. */
    std::string take();

    bool resetController() override { return happen("reset"); }
    bool deinit() override { return happen("deinit"); }
    bool setBacklight(bool on) override { return happen(on ? "backlight 1" : "backlight 0"); }
    bool writeCmd(unsigned char reg, unsigned char value) override;
    bool readCmd(unsigned char reg, unsigned char& value) override;
    bool readStatus(unsigned char& value) override;
    bool writeCmdAndVerify(unsigned char reg, unsigned char value, unsigned char mask) override;
    bool writeData(unsigned char value) override;
    bool isInitialized() override { return initialized; }
    unsigned getLines() const override { return 3; }
    unsigned getChars() const override { return 25; }

private:
    bool happen(const std::string& access);

    std::string accesses;
};
