/*
 * What setting and reading a line of the kernel costs through the GPIO layer, against libgpiod's functions on another
 * line of the same chip and against a bare pwrite and pread on a held descriptor, the least that the layer can cost.
 * They are measured in turns in one run, since machines change their speed; the ratio counts. That they move and read
 * their lines is asked of the chip's driver first.
 * To be run in a machine of its own: scripts/bench-kernel does that. Prints a line for each row, with tabs between the
 * row's name, the layer's time and what it is compared with, both in nanoseconds.
 */
#include "bench/BareFile.h"
#include "bench/Check.h"
#include "bench/Timing.h"
#include "sysfs/ISysfsGpio.h"
#include "sysfs/PinDirectionEn.h"
#include "sysfs/SysfsGpioFactory.h"

#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gpiod.h>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using bench::check;

constexpr const char* self = "kernel-pins";
constexpr int rounds = 201;
constexpr int operationsInRound = 1000;

/** @return the number of the first line of the GPIO chip with this label */
unsigned baseOf(const std::string& label)
{
    for (const auto& entry : std::filesystem::directory_iterator("/sys/class/gpio")) {
        std::string found;
        unsigned base = 0;
        if (std::ifstream(entry.path() / "label") >> found && found == label &&
            std::ifstream(entry.path() / "base") >> base) {
            return base;
        }
    }
    throw std::runtime_error("no GPIO chip has the label " + label);
}

/** @return direction and level as the driver of the chip reports them, such as "out hi"; empty for a line that is not
 * in use */
std::string driverSees(unsigned gpioNumber)
{
    std::ifstream lines("/sys/kernel/debug/gpio");
    const std::string name = "gpio-" + std::to_string(gpioNumber);
    for (std::string text; std::getline(lines, text);) {
        std::string found;
        std::string direction;
        std::string level;
        if (std::istringstream(text) >> found && found == name &&
            std::istringstream(text.substr(text.rfind(')') + 1)) >> direction >> level) {
            return direction.append(" ").append(level);
        }
    }
    return {};
}

void expectSeen(unsigned gpioNumber, const std::string& direction, bool level)
{
    const std::string expected = direction + (level ? " hi" : " lo");
    const std::string seen = driverSees(gpioNumber);
    if (seen != expected) {
        throw std::runtime_error("GPIO " + std::to_string(gpioNumber) + " should be '" + expected +
                                 "', the driver says '" + seen + "'");
    }
}

/** A line through the GPIO layer, as an application gets it. */
class LayerLine {
public:
    explicit LayerLine(unsigned gpioNumber) : pin(sysfs::SysfsGpioFactory().create())
    {
        pin->exportGpio(gpioNumber);
        check(pin->init(false, sysfs::PinDirectionEn::Output, false), "init");
    }
    ~LayerLine() { pin->deinit(); }
    LayerLine(const LayerLine&) = delete;
    LayerLine& operator=(const LayerLine&) = delete;

    void set(bool level) { check(pin->setValue(level), "setValue"); }
    bool get() const { return pin->getValue(); }
    void setDirection(sysfs::PinDirectionEn direction) { pin->setDirection(direction); }

private:
    std::unique_ptr<sysfs::ISysfsGpio> pin;
};

/** A line through libgpiod, requested for as long as the object lives. */
class LibgpiodLine {
public:
    LibgpiodLine(const std::string& label, unsigned offset) : chip(gpiod_chip_open_by_label(label.c_str()))
    {
        check(chip != nullptr, "gpiod_chip_open_by_label");
        line = gpiod_chip_get_line(chip.get(), offset);
        check(line != nullptr && gpiod_line_request_output(line, self, 0) == 0, "gpiod_line_request_output");
    }

    void set(bool level) { check(gpiod_line_set_value(line, level ? 1 : 0) == 0, "gpiod_line_set_value"); }
    bool get() const
    {
        const int level = gpiod_line_get_value(line);
        check(level >= 0, "gpiod_line_get_value");
        return level == 1;
    }
    void setDirection(sysfs::PinDirectionEn direction)
    {
        check((direction == sysfs::PinDirectionEn::Input ? gpiod_line_set_direction_input(line)
                                                         : gpiod_line_set_direction_output(line, 0)) == 0,
              "gpiod_line_set_direction");
    }

private:
    struct Close {
        void operator()(gpiod_chip* open) const { gpiod_chip_close(open); }
    };

    std::unique_ptr<gpiod_chip, Close> chip;
    gpiod_line* line = nullptr; ///< the chip's
};

/** The file that the layer uses, opened once more. */
class BareLine {
public:
    explicit BareLine(unsigned gpioNumber)
        : value("/sys/class/gpio/gpio" + std::to_string(gpioNumber) + "/value", O_RDWR)
    {
    }

    void set(bool level) { value.write(level ? "1" : "0"); }
    bool get() const { return value.readLevel(); }

private:
    bench::BareFile value;
};

/** Fails unless the line takes and shows both levels; leaves it as an input at the high level that it had last. */
template <typename Line>
void expectToReach(Line& line, unsigned gpioNumber)
{
    for (const bool level : {true, false, true}) {
        line.setDirection(sysfs::PinDirectionEn::Output);
        line.set(!level);
        expectSeen(gpioNumber, "out", !level);
        line.set(level);
        expectSeen(gpioNumber, "out", level);
        line.setDirection(sysfs::PinDirectionEn::Input);
        expectSeen(gpioNumber, "in", level);
        if (line.get() != level) {
            throw std::runtime_error("GPIO " + std::to_string(gpioNumber) + " is read at another level than it has");
        }
    }
}

struct Lines {
    LayerLine layer;
    BareLine bare;
    LibgpiodLine libgpiod;
};

template <typename Operation>
void compare(const char* name, const char* bareName, Lines& lines, const Operation& operation)
{
    std::vector<double> layer;
    std::vector<double> bare;
    std::vector<double> libgpiod;
    const auto timeOf = [&operation](auto& line) {
        return bench::nanosecondsEach(operationsInRound, [&](int i) { operation(line, i); });
    };
    for (int round = 0; round < rounds; ++round) {
        layer.push_back(timeOf(lines.layer));
        bare.push_back(timeOf(lines.bare));
        libgpiod.push_back(timeOf(lines.libgpiod));
    }
    constexpr const char* row = "%s in the emulated ARM kernel, against %s\t%.0f\t%.0f\n";
    std::printf(row, name, "libgpiod", bench::median(layer), bench::median(libgpiod));
    std::printf(row, name, bareName, bench::median(layer), bench::median(bare));
}

void run(const std::string& label, unsigned layerOffset, unsigned libgpiodOffset)
{
    const unsigned base = baseOf(label);
    const unsigned number = base + layerOffset;
    Lines lines = {LayerLine(number), BareLine(number), LibgpiodLine(label, libgpiodOffset)};
    expectToReach(lines.layer, number);
    expectToReach(lines.libgpiod, base + libgpiodOffset);
    compare("getValue", "a bare pread", lines, [](const auto& line, int) {
        if (!line.get()) {
            throw std::runtime_error("a high line is read as low");
        }
    });
    lines.layer.setDirection(sysfs::PinDirectionEn::Output);
    lines.libgpiod.setDirection(sysfs::PinDirectionEn::Output);
    compare("setValue", "a bare pwrite", lines, [](auto& line, int i) { line.set(i % 2 == 0); });
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s CHIP-LABEL OFFSET OFFSET, of two lines that nobody holds\n", self);
        return 2;
    }
    try {
        run(argv[1], static_cast<unsigned>(std::stoul(argv[2])), static_cast<unsigned>(std::stoul(argv[3])));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", self, error.what());
        return 1;
    }
    return 0;
}
