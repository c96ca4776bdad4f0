/*
 * What setting and reading a line of the kernel costs through the GPIO layer: by the character device, against a bare
 * ioctl and against libgpiod's functions on other lines of the same chip, and by sysfs, against a bare pwrite and
 * pread. They are measured in turns in one run, since machines change their speed; the ratio counts. That they move and
 * read their lines is asked of the chip's driver first. To be run in a machine of its own: scripts/parts/bench-kernel
 * does that. Prints a line for each row, with tabs between the row's name, the layer's time and what it is compared
 * with, both in nanoseconds.
 */
#include "bench/BareFile.h"
#include "bench/Check.h"
#include "bench/Timing.h"
#include "panelsim/board/FileDescriptor.h"
#include "sysfs/ISysfsGpio.h"
#include "sysfs/PinDirectionEn.h"
#include "sysfs/SysfsGpioFactory.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gpiod.h>
#include <linux/gpio.h>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/ioctl.h>
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

/** A line through one interface of the GPIO layer, as an application gets it. */
class LayerLine {
public:
    LayerLine(const char* backend, unsigned gpioNumber) : pin(sysfs::SysfsGpioFactory().create())
    {
        check(setenv("SYSFSGPIO_BACKEND", backend, 1) == 0, "setenv");
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
class BareFileLine {
public:
    explicit BareFileLine(unsigned gpioNumber)
        : value("/sys/class/gpio/gpio" + std::to_string(gpioNumber) + "/value", O_RDWR)
    {
    }

    void set(bool level) { value.write(level ? "1" : "0"); }
    bool get() const { return value.readLevel(); }

private:
    bench::BareFile value;
};

/** A line requested from a chip's character device: its operations are an ioctl and nothing else. */
class BareRequestLine {
public:
    BareRequestLine(const std::string& chip, unsigned offset) : line(request(chip, offset), "GPIO_V2_GET_LINE_IOCTL") {}

    void set(bool level)
    {
        gpio_v2_line_values values{level ? 1U : 0U, 1};
        check(ioctl(line.get(), GPIO_V2_LINE_SET_VALUES_IOCTL, &values) == 0, "GPIO_V2_LINE_SET_VALUES_IOCTL");
    }
    bool get() const
    {
        gpio_v2_line_values values{0, 1};
        check(ioctl(line.get(), GPIO_V2_LINE_GET_VALUES_IOCTL, &values) == 0, "GPIO_V2_LINE_GET_VALUES_IOCTL");
        return values.bits == 1;
    }
    void setDirection(sysfs::PinDirectionEn direction)
    {
        gpio_v2_line_config config{};
        config.flags = direction == sysfs::PinDirectionEn::Input ? GPIO_V2_LINE_FLAG_INPUT : GPIO_V2_LINE_FLAG_OUTPUT;
        check(ioctl(line.get(), GPIO_V2_LINE_SET_CONFIG_IOCTL, &config) == 0, "GPIO_V2_LINE_SET_CONFIG_IOCTL");
    }

private:
    static int request(const std::string& chip, unsigned offset)
    {
        const panelsim::FileDescriptor device(open(chip.c_str(), O_RDWR | O_CLOEXEC), "open");
        gpio_v2_line_request request{};
        request.offsets[0] = offset;
        request.num_lines = 1;
        return ioctl(device.get(), GPIO_V2_GET_LINE_IOCTL, &request) == 0 ? request.fd : -1;
    }

    panelsim::FileDescriptor line;
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

template <typename Line>
struct Side {
    const char* name;
    Line& line;
};

/** Measures an operation on two lines in turns. */
template <typename Measured, typename Floor, typename Operation>
void compare(const char* operationName, Side<Measured> measured, Side<Floor> floor, const Operation& operation)
{
    std::vector<double> measuredTimes;
    std::vector<double> floorTimes;
    for (int round = 0; round < rounds; ++round) {
        measuredTimes.push_back(bench::nanosecondsEach(operationsInRound, [&](int i) { operation(measured.line, i); }));
        floorTimes.push_back(bench::nanosecondsEach(operationsInRound, [&](int i) { operation(floor.line, i); }));
    }
    std::printf("%s by %s in the emulated ARM kernel, against %s\t%.0f\t%.0f\n", operationName, measured.name,
                floor.name, bench::median(measuredTimes), bench::median(floorTimes));
}

constexpr auto readHigh = [](const auto& line, int) {
    if (!line.get()) {
        throw std::runtime_error("a high line is read as low");
    }
};
constexpr auto setOtherLevel = [](auto& line, int i) { line.set(i % 2 == 0); };

/** @param offsets of four lines */
void run(const std::string& label, const std::string& chip, const std::vector<unsigned>& offsets)
{
    const unsigned base = baseOf(label);
    LayerLine device("chardev", base + offsets[0]);
    LayerLine sysfsLine("sysfs", base + offsets[1]);
    BareFileLine file(base + offsets[1]);
    BareRequestLine requested(chip, offsets[2]);
    LibgpiodLine libgpiod(label, offsets[3]);
    expectToReach(device, base + offsets[0]);
    expectToReach(sysfsLine, base + offsets[1]);
    expectToReach(requested, base + offsets[2]);
    expectToReach(libgpiod, base + offsets[3]);
    compare("getValue", Side<LayerLine>{"the character device", device},
            Side<BareRequestLine>{"a bare ioctl", requested}, readHigh);
    compare("getValue", Side<LayerLine>{"the character device", device}, Side<LibgpiodLine>{"libgpiod", libgpiod},
            readHigh);
    compare("getValue", Side<LayerLine>{"sysfs", sysfsLine}, Side<BareFileLine>{"a bare pread", file}, readHigh);
    for (LayerLine* line : {&device, &sysfsLine}) {
        line->setDirection(sysfs::PinDirectionEn::Output);
        line->set(false);
    }
    requested.setDirection(sysfs::PinDirectionEn::Output);
    libgpiod.setDirection(sysfs::PinDirectionEn::Output);
    compare("setValue", Side<LayerLine>{"the character device", device},
            Side<BareRequestLine>{"a bare ioctl", requested}, setOtherLevel);
    compare("setValue", Side<LayerLine>{"the character device", device}, Side<LibgpiodLine>{"libgpiod", libgpiod},
            setOtherLevel);
    compare("setValue", Side<LayerLine>{"sysfs", sysfsLine}, Side<BareFileLine>{"a bare pwrite", file}, setOtherLevel);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 7) {
        std::fprintf(
            stderr, "usage: %s CHIP-LABEL CHIP-DEVICE OFFSET OFFSET OFFSET OFFSET, of lines that nobody holds\n", self);
        return 2;
    }
    try {
        std::vector<unsigned> offsets;
        for (int i = 3; i < argc; ++i) {
            offsets.push_back(static_cast<unsigned>(std::stoul(argv[i])));
        }
        run(argv[1], argv[2], offsets);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", self, error.what());
        return 1;
    }
    return 0;
}
