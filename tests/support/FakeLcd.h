#pragma once

#include "frontpanelhw/lcd/ILcd.h"
#include "tests/support/FakePins.h"

/**
 * An LCD bus that only records what is done on it: "12=A1" a register write, "12=A1/FF" one with read-back check and
 * its mask, "10?" a register read, "d41" display data, "status", "reset", "deinit", "BL=1". Registers read as written.
 */
class FakeLcd : public frontpanelhw::lcd::ILcd {
public:
    explicit FakeLcd(const Record& itsRecord) : record(itsRecord) {}

    bool initialized = true;
    std::array<unsigned char, 256> registers{};

    bool resetController() override { return record.happen("reset"); }
    bool deinit() override { return record.happen("deinit"); }
    bool setBacklight(bool on) override { return record.happen(on ? "BL=1" : "BL=0"); }
    bool writeCmd(unsigned char reg, unsigned char value) override { return write(reg, value, ""); }
    bool writeCmdAndVerify(unsigned char reg, unsigned char value, unsigned char mask) override
    {
        return write(reg, value, "/" + hex(mask));
    }
    bool readCmd(unsigned char reg, unsigned char& value) override
    {
        value = registers.at(reg);
        return record.happen(hex(reg) + "?");
    }
    bool readStatus(unsigned char& value) override
    {
        value = initialized ? 0x0A : value;
        return initialized && record.happen("status");
    }
    bool writeData(unsigned char value) override { return record.happen("d" + hex(value)); }
    bool isInitialized() override { return initialized; }
    unsigned getLines() const override { return 3; }
    unsigned getChars() const override { return 25; }

private:
    static std::string hex(unsigned char byte)
    {
        const char* const digits = "0123456789ABCDEF";
        return {digits[byte >> 4], digits[byte & 0xF]};
    }
    bool write(unsigned char reg, unsigned char value, const std::string& mask)
    {
        registers.at(reg) = value;
        return record.happen(hex(reg) + "=" + hex(value) + mask);
    }

    const Record& record;
};
