#include "frontpanelhw/lcd/LcdRa8822.h"

#include "frontpanelhw/Wait.h"

#include <chrono>
#include <cstddef>
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

/*
 * Each writes the log line of an operation that failed and returns false. Out of line, so that operations which succeed
 * do not prepare for it.
 */

[[gnu::cold, gnu::noinline]] bool failed(const char* what, const std::exception& why)
{
    std::cerr << what << why.what() << "\n";
    return false;
}

[[gnu::cold, gnu::noinline]] bool failedToWrite(unsigned reg, unsigned value, const std::exception& why)
{
    const std::string what = "ERROR: unable to write lcd controller command '" + std::to_string(value) +
                             "' to register '" + std::to_string(reg) + "'; ";
    return failed(what.c_str(), why);
}

[[gnu::cold, gnu::noinline]] bool failedToRead(unsigned reg, const std::exception& why)
{
    const std::string what = "ERROR: unable to read lcd controller register '" + std::to_string(reg) + "'; ";
    return failed(what.c_str(), why);
}

/*
 * The bus cycles that pages are made of, as in the chip's timing diagrams. They take the pins as an argument and leave
 * no loop to the processor, since they are most of what it does for the display: as members they would fetch the
 * record's address anew after each of their pin operations.
 */

void switchDataLines(LcdRa8822Gpios& pins, sysfs::PinDirectionEn direction)
{
#pragma GCC unroll 8
    for (auto& dataGpio : pins.dataGpios) {
        dataGpio->setDirection(direction);
    }
}

void putByte(LcdRa8822Gpios& pins, unsigned byte)
{
#pragma GCC unroll 8
    for (std::size_t i = 0; i < pins.dataGpios.size(); ++i) {
        pins.dataGpios[i]->setValue(((byte >> i) & 1U) != 0);
    }
}

unsigned char takeByte(const LcdRa8822Gpios& pins)
{
    unsigned byte = 0;
#pragma GCC unroll 8
    for (std::size_t i = 0; i < pins.dataGpios.size(); ++i) {
        byte |= static_cast<unsigned>(pins.dataGpios[i]->getValue()) << i;
    }
    return static_cast<unsigned char>(byte);
}

/** A write cycle up to the strobe's end, for a byte that may be known when this is compiled: no computing then. */
[[gnu::always_inline]] inline void strobeByte(LcdRa8822Gpios& pins, unsigned byte, bool registerSelect)
{
    putByte(pins, byte);
    pins.registerSelectGpio->setValue(registerSelect);
    pins.chipSelectGpio->setValue(true);
    pins.readStrobeGpio->setValue(false);
    pins.writeStrobeGpio->setValue(true);
    wait(strobeWidth);
    pins.writeStrobeGpio->setValue(false);
    pins.chipSelectGpio->setValue(false);
}

void sendRegisterNumber(LcdRa8822Gpios& pins, unsigned reg, bool isRa8806)
{
    strobeByte(pins, reg, isRa8806);
    wait(cycleRecovery);
}

void writeRegister(LcdRa8822Gpios& pins, unsigned reg, unsigned value, bool isRa8806)
{
    sendRegisterNumber(pins, reg, isRa8806);
    putByte(pins, value);
    pins.registerSelectGpio->setValue(false);
    pins.chipSelectGpio->setValue(true);
    pins.writeStrobeGpio->setValue(true);
    wait(strobeWidth);
    pins.writeStrobeGpio->setValue(false);
    pins.chipSelectGpio->setValue(false);
    wait(cycleRecovery);
}

/** To be called with the register number sent and the data lines turned to inputs. */
void readRegisterValue(LcdRa8822Gpios& pins, unsigned char& value)
{
    pins.registerSelectGpio->setValue(false);
    pins.chipSelectGpio->setValue(true);
    pins.readStrobeGpio->setValue(true);
    wait(strobeWidth);
    value = takeByte(pins);
    pins.readStrobeGpio->setValue(false);
    pins.chipSelectGpio->setValue(false);
    wait(cycleRecovery);
}

void writeMemory(LcdRa8822Gpios& pins, unsigned value, bool isRa8806)
{
    if (isRa8806) {
        strobeByte(pins, ra8806DataRegister, true);
        wait(cycleRecovery);
    }
    strobeByte(pins, value, !isRa8806);
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
        std::cerr << "ERROR: "
                  << "failed to initialize one or more gpio(s)"
                  << "\n";
        return false;
    }
    if (!resetController()) {
        std::cerr << "ERROR: "
                  << "error while resetting lcd controller"
                  << "\n";
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
    std::cout << "INFO: "
              << "LcdControl " << std::hex << static_cast<unsigned>(id) << "\n";
    return true;
}

unsigned LcdRa8822::lcdType() const
{
    return type;
}

void LcdRa8822::setDataDirection(sysfs::PinDirectionEn direction)
{
    switchDataLines(gpios, direction);
    dataDirection = direction;
}

void LcdRa8822::setData(unsigned char value)
{
    putByte(gpios, value);
}

unsigned char LcdRa8822::getData()
{
    if (!initialized) {
        return 0;
    }
    return takeByte(gpios);
}

void LcdRa8822::setRegister(unsigned char reg)
{
    sendRegisterNumber(gpios, reg, isRa8806());
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
        writeRegister(gpios, reg, value, isRa8806());
        return true;
    } catch (const std::exception& e) {
        return failedToWrite(reg, value, e);
    }
}

bool LcdRa8822::readCmd(unsigned char reg, unsigned char& value)
{
    if (!initialized) {
        return false;
    }
    try {
        ensureDataOutput();
        sendRegisterNumber(gpios, reg, isRa8806());
        setDataDirection(sysfs::PinDirectionEn::Input);
        readRegisterValue(gpios, value);
        return true;
    } catch (const std::exception& e) {
        return failedToRead(reg, e);
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
    std::cout << "WARNING: "
              << "value '" << std::to_string(value & mask) << "' written to register " << std::to_string(reg)
              << " read back as '" << std::to_string(readBack & mask) << "'"
              << "\n";
    return false;
}

bool LcdRa8822::writeData(unsigned char value)
{
    if (!initialized) {
        return false;
    }
    try {
        ensureDataOutput();
        writeMemory(gpios, value, isRa8806());
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

bool LcdRa8822::isRa8806() const
{
    return type == ra8806;
}

} // namespace frontpanelhw::lcd
