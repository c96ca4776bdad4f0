#include "tests/support/FakeLcd.h"

namespace {

std::string hex(unsigned char byte)
{
    const char* const digits = "0123456789ABCDEF";
    return {' ', digits[byte >> 4], digits[byte & 0xF]};
}

} // namespace

std::string FakeLcd::take()
{
    std::string taken;
    taken.swap(accesses);
    return taken;
}

bool FakeLcd::writeCmd(unsigned char reg, unsigned char value)
{
    registers[reg] = value;
    return happen("w" + hex(reg) + hex(value));
}

bool FakeLcd::readCmd(unsigned char reg, unsigned char& value)
{
    value = registers[reg];
    return happen("r" + hex(reg));
}

bool FakeLcd::readStatus(unsigned char& value)
{
    if (!initialized) {
        return false;
    }
    value = status;
    return happen("s");
}

bool FakeLcd::writeCmdAndVerify(unsigned char reg, unsigned char value, unsigned char mask)
{
    registers[reg] = value;
    return happen("v" + hex(reg) + hex(value) + hex(mask));
}

bool FakeLcd::writeData(unsigned char value)
{
    return happen("d" + hex(value));
}

bool FakeLcd::happen(const std::string& access)
{
    accesses += (accesses.empty() ? "" : ", ") + access;
    return failing.count(access) == 0;
}
