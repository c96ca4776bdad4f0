#include "frontpanelhw/lcd/LcdRa8822.h"

#include "frontpanelhw/Wait.h"
#include "frontpanelhw/lcd/Hexadecimal.h"

#include <chrono>
#include <exception>
#include <iostream>
#include <string>

namespace frontpanelhw::lcd {

namespace {

using namespace std::chrono_literals;

constexpr auto strobeWidth = 10us;
constexpr auto cycleRecovery = 1us;
constexpr auto resetSetup = 1ms;
constexpr auto resetWidth = 300ms;
constexpr auto resetHold = 1ms;
constexpr auto resetRecovery = 60ms;

constexpr unsigned char idRegister = 0x00;
constexpr unsigned char ra8803Id = 0xC9;
constexpr unsigned char ra8806DataRegister = 0xB0;

constexpr unsigned lineCount = 3;
constexpr unsigned charCount = 25;

bool failed(const std::string& what, const std::exception& why)
{
    std::cerr << what << why.what() << "\n";
    return false;
}

} // namespace

LcdRa8822::LcdRa8822(LcdRa8822Gpios& pins, bool activeLowBacklight) : gpios(pins), backlightInverted(activeLowBacklight)
{
}

LcdRa8822::~LcdRa8822()
{
    LcdRa8822::deinit();
}

bool LcdRa8822::init()
{
    if (!initGpios(gpios, backlightInverted)) {
        std::cerr << "ERROR: failed to initialize one or more gpio(s)\n";
        return false;
    }
    if (!resetController()) {
        std::cerr << "ERROR: error while resetting lcd controller\n";
        return false;
    }
    initialized = true;

    unsigned char id = 0;
    if (!readCmd(idRegister, id)) {
        id = 0;
    }
    if (id != ra8803Id) {
        type = ra8806;
    }
    std::cout << "INFO: LcdControl " << hexadecimal << static_cast<unsigned>(id) << "\n";
    return true;
}

unsigned LcdRa8822::lcdType() const
{
    return type;
}

void LcdRa8822::setDataDirection(sysfs::PinDirectionEn direction)
{
    for (auto& dataGpio : gpios.dataGpios) {
        dataGpio->setDirection(direction);
    }
    dataDirection = direction;
}

void LcdRa8822::setData(unsigned char value)
{
    unsigned bits = value;
    for (auto& dataGpio : gpios.dataGpios) {
        dataGpio->setValue((bits & 1U) != 0);
        bits >>= 1;
    }
}

unsigned char LcdRa8822::getData()
{
    if (!initialized) {
        return 0;
    }
    unsigned value = 0;
    unsigned bit = 0;
    for (const auto& dataGpio : gpios.dataGpios) {
        value |= static_cast<unsigned>(dataGpio->getValue()) << bit++;
    }
    return static_cast<unsigned char>(value);
}

void LcdRa8822::setRegister(unsigned char reg)
{
    writeByte(reg, type == ra8806);
    wait(cycleRecovery);
}

void LcdRa8822::writeByte(unsigned char byte, bool registerSelect)
{
    setData(byte);
    gpios.registerSelectGpio->setValue(registerSelect);
    gpios.chipSelectGpio->setValue(true);
    gpios.readStrobeGpio->setValue(false);
    strobeWrite();
}

void LcdRa8822::strobeWrite()
{
    gpios.writeStrobeGpio->setValue(true);
    wait(strobeWidth);
    gpios.writeStrobeGpio->setValue(false);
    gpios.chipSelectGpio->setValue(false);
}

bool LcdRa8822::resetController()
{
    try {
        setDataDirection(sysfs::PinDirectionEn::Output);
        setData(0xFF);
        gpios.registerSelectGpio->setValue(true);
        gpios.chipSelectGpio->setValue(false);
        gpios.readStrobeGpio->setValue(false);
        gpios.writeStrobeGpio->setValue(false);
        gpios.resetGpio->setValue(false);
        gpios.chipSelectGpio->setValue(true);
        wait(resetSetup);
        gpios.resetGpio->setValue(true);
        wait(resetWidth);
        gpios.resetGpio->setValue(false);
        wait(resetHold);
        gpios.chipSelectGpio->setValue(false);
        wait(resetRecovery);
        return true;
    } catch (const std::exception& e) {
        return failed("ERROR: unable to reset lcd controller; ", e);
    }
}

bool LcdRa8822::deinit()
{
    initialized = false;
    return true;
}

bool LcdRa8822::setBacklight(bool on)
{
    if (!initialized) {
        return false;
    }
    try {
        return gpios.backlightGpio->setValue(on);
    } catch (const std::exception& e) {
        return failed("ERROR: unable to set lcd backlight gpio value; ", e);
    }
}

bool LcdRa8822::writeCmd(unsigned char reg, unsigned char value)
{
    if (!initialized) {
        return false;
    }
    try {
        ensureDataOutput();
        setRegister(reg);
        setData(value);
        gpios.registerSelectGpio->setValue(false);
        gpios.chipSelectGpio->setValue(true);
        strobeWrite();
        wait(cycleRecovery);
        return true;
    } catch (const std::exception& e) {
        return failed("ERROR: unable to write lcd controller command '" + std::to_string(value) + "' to register '" +
                          std::to_string(reg) + "'; ",
                      e);
    }
}

bool LcdRa8822::readCmd(unsigned char reg, unsigned char& value)
{
    if (!initialized) {
        return false;
    }
    try {
        ensureDataOutput();
        setRegister(reg);
        setDataDirection(sysfs::PinDirectionEn::Input);
        gpios.registerSelectGpio->setValue(false);
        gpios.chipSelectGpio->setValue(true);
        gpios.readStrobeGpio->setValue(true);
        wait(strobeWidth);
        value = getData();
        gpios.readStrobeGpio->setValue(false);
        gpios.chipSelectGpio->setValue(false);
        wait(cycleRecovery);
        return true;
    } catch (const std::exception& e) {
        return failed("ERROR: unable to read lcd controller register '" + std::to_string(reg) + "'; ", e);
    }
}

bool LcdRa8822::readStatus(unsigned char& status)
{
    if (!initialized) {
        return false;
    }
    try {
        setDataDirection(sysfs::PinDirectionEn::Input);
        gpios.registerSelectGpio->setValue(true);
        gpios.chipSelectGpio->setValue(true);
        gpios.readStrobeGpio->setValue(true);
        gpios.writeStrobeGpio->setValue(false);
        wait(strobeWidth);
        status = getData();
        gpios.readStrobeGpio->setValue(false);
        gpios.chipSelectGpio->setValue(false);
        return true;
    } catch (const std::exception& e) {
        return failed("ERROR: unable to read lcd controller status ", e);
    }
}

bool LcdRa8822::writeCmdAndVerify(unsigned char reg, unsigned char value, unsigned char mask)
{
    if (!initialized) {
        return false;
    }
    unsigned char readBack = 0;
    const bool written = writeCmd(reg, value);
    const bool read = readCmd(reg, readBack);
    if (!written || !read) {
        return false;
    }
    if (((value ^ readBack) & mask) == 0) {
        return true;
    }
    std::cout << "WARNING: value '" << std::to_string(value & mask) << "' written to register " << std::to_string(reg)
              << " read back as '" << std::to_string(readBack & mask) << "'\n";
    return false;
}

bool LcdRa8822::writeData(unsigned char value)
{
    if (!initialized) {
        return false;
    }
    try {
        ensureDataOutput();
        if (type == ra8806) {
            setRegister(ra8806DataRegister);
        }
        writeByte(value, type != ra8806);
        return true;
    } catch (const std::exception& e) {
        return failed("ERROR: unable to write lcd controller data; ", e);
    }
}

bool LcdRa8822::isInitialized()
{
    return initialized;
}

unsigned LcdRa8822::getLines() const
{
    return lineCount;
}

unsigned LcdRa8822::getChars() const
{
    return charCount;
}

void LcdRa8822::ensureDataOutput()
{
    if (dataDirection != sysfs::PinDirectionEn::Output) {
        setDataDirection(sysfs::PinDirectionEn::Output);
    }
}

} // namespace frontpanelhw::lcd
