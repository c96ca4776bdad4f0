/*
 * sent-bytes ra8803|ra8806 ARGUMENT...: runs `frontpanel ARGUMENT...` on pins that go to a plain receiver, and prints
 * what a chip takes that latches when the write strobe rises while chip select is low: a line for each write cycle,
 * with the level of register select and the byte. It shares nothing with the simulated panel, so that the two can be
 * held against each other.
 */
#include "sysfs/ISysfsGpio.h"
#include "sysfs/SysfsGpioFactory.h"
#include "tools/Frontpanel.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

namespace {

constexpr unsigned idBase = 4;
constexpr unsigned dataBase = 40;
constexpr unsigned registerSelect = 48;
constexpr unsigned chipSelect = 49;
constexpr unsigned readStrobe = 50;
constexpr unsigned writeStrobe = 51;

/** The lines of an indoor panel, and of its chip as much as the library asks for: registers read back as written. */
class Receiver {
public:
    Receiver()
    {
        for (unsigned i = 0; i < 4; ++i) {
            levels.at(idBase + i) = true;
        }
    }

    void become(bool ra8803)
    {
        isRa8803 = ra8803;
        registers[0] = ra8803 ? 0xC9 : 0;
    }

    void drive(unsigned gpio, bool level)
    {
        const bool latches = gpio == writeStrobe && level && !levels.at(writeStrobe) && !levels.at(chipSelect);
        levels.at(gpio) = level;
        if (latches) {
            unsigned byte = 0;
            for (unsigned i = 0; i < 8; ++i) {
                byte |= static_cast<unsigned>(levels.at(dataBase + i)) << i;
            }
            std::printf("%d %02x\n", levels.at(registerSelect) ? 1 : 0, byte);
            take(levels.at(registerSelect), static_cast<unsigned char>(byte));
        }
    }

    bool read(unsigned gpio)
    {
        if (gpio < dataBase || gpio >= dataBase + 8 || levels.at(readStrobe) || levels.at(chipSelect)) {
            return levels.at(gpio);
        }
        valueComes = false;
        constexpr unsigned idle = 0x40;
        return ((levels.at(registerSelect) ? idle : registers.at(selected)) >> (gpio - dataBase) & 1U) != 0;
    }

private:
    void take(bool select, unsigned char byte)
    {
        // One chip tells register numbers by register select, the other by their turn.
        const bool isNumber = isRa8803 ? !select && !valueComes : select;
        valueComes = isRa8803 && isNumber;
        if (isNumber) {
            selected = byte;
        } else if (!select) {
            registers.at(selected) = byte;
        }
    }

    std::array<bool, 64> levels{};
    std::array<unsigned char, 256> registers{};
    bool isRa8803 = false;
    std::size_t selected = 0;
    bool valueComes = false;
};

Receiver receiver;

class Pin final : public sysfs::ISysfsGpio {
public:
    bool init(bool isInverted, sysfs::PinDirectionEn direction, bool value) override
    {
        inverted = isInverted;
        last = value;
        setDirection(direction);
        return true;
    }
    void deinit() override {}
    void setDirection(sysfs::PinDirectionEn direction) override
    {
        if (direction == sysfs::PinDirectionEn::Output) {
            receiver.drive(gpio, last != inverted);
        }
    }
    bool setValue(bool value) override
    {
        last = value;
        receiver.drive(gpio, value != inverted);
        return true;
    }
    bool getValue() const override { return receiver.read(gpio) != inverted; }
    void exportGpio(unsigned gpioNumber) override { gpio = gpioNumber; }
    unsigned getGpioNumber() const override { return gpio; }

private:
    unsigned gpio = 0;
    bool inverted = false;
    bool last = false;
};

} // namespace

std::unique_ptr<sysfs::ISysfsGpio> sysfs::SysfsGpioFactory::create() const
{
    return std::make_unique<Pin>();
}

int main(int argc, char* argv[])
{
    const std::string chip = argc > 1 ? argv[1] : "";
    if (chip != "ra8803" && chip != "ra8806") {
        std::cerr << "sent-bytes: usage: sent-bytes ra8803|ra8806 ARGUMENT...\n";
        return 2;
    }
    receiver.become(chip == "ra8803");
    // Standard output is for the bytes; the library says there what it finds.
    std::streambuf* const output = std::cout.rdbuf(std::cerr.rdbuf());
    const int status = tools::runFrontpanel(argc - 1, argv + 1);
    std::cout.rdbuf(output);
    return status;
}
