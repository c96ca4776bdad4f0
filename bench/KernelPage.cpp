/*
 * What a page costs on the kernel's GPIO lines, by the character device against sysfs, with the library's own work and
 * without its waits: nanosleep returns at once. A chip with fewer lines than the LCD has serves in turns: each turn has
 * some pins of the LCD on lines of the chip and leaves the others idle, and what all pins idle cost is counted once.
 * Prints a line for each row, with tabs between the row's name, what was measured and what it is compared with: times
 * in nanoseconds, and levels, of which the character device leaves out those that a line has already.
 */
#include "bench/IdlePins.h"
#include "bench/Timing.h"
#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/fp/IndoorFpImpl.h"
#include "sysfs/ISysfsGpio.h"
#include "sysfs/ISysfsGpioFactory.h"
#include "sysfs/PinDirectionEn.h"
#include "sysfs/SysfsGpioFactory.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// Stands before the C library's in the lookup of every library of this process.
extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* /*wanted*/, timespec* /*remaining*/)
{
    return 0;
}

namespace {

constexpr unsigned lcdLines = 13;
constexpr int rounds = 11;

struct Levels {
    unsigned written = 0;
    unsigned changed = 0;
};

/** A pin of the panel that writes to a line of the kernel, if it has one, and reads as an idle one. */
class PartlyRealPin : public sysfs::ISysfsGpio {
public:
    PartlyRealPin(std::unique_ptr<sysfs::ISysfsGpio> idlePin, const std::map<unsigned, unsigned>& kernelNumbers,
                  Levels& count)
        : idle(std::move(idlePin)), numbers(kernelNumbers), levels(count)
    {
    }

    bool init(bool inverted, sysfs::PinDirectionEn direction, bool initialValue) override
    {
        level = initialValue;
        return real ? real->init(inverted, direction, initialValue) : true;
    }
    void deinit() override {}
    void setDirection(sysfs::PinDirectionEn direction) override
    {
        if (real) {
            real->setDirection(direction);
        }
    }
    bool setValue(bool value) override
    {
        ++levels.written;
        levels.changed += value != level ? 1U : 0U;
        level = value;
        return real ? real->setValue(value) : true;
    }
    bool getValue() const override { return idle->getValue(); }
    void exportGpio(unsigned gpioNumber) override
    {
        idle->exportGpio(gpioNumber);
        if (const auto found = numbers.find(gpioNumber); found != numbers.end()) {
            real = sysfs::SysfsGpioFactory().create();
            real->exportGpio(found->second);
        }
    }
    unsigned getGpioNumber() const override { return idle->getGpioNumber(); }

private:
    std::unique_ptr<sysfs::ISysfsGpio> idle;
    std::unique_ptr<sysfs::ISysfsGpio> real;
    const std::map<unsigned, unsigned>& numbers;
    Levels& levels;
    bool level = false;
};

class PartlyRealPins : public sysfs::ISysfsGpioFactory {
public:
    PartlyRealPins(unsigned char chipId, std::map<unsigned, unsigned> kernelNumbers)
        : idle(chipId), numbers(std::move(kernelNumbers))
    {
    }

    std::unique_ptr<sysfs::ISysfsGpio> create() const override
    {
        return std::make_unique<PartlyRealPin>(idle.create(), numbers, levels);
    }

    mutable Levels levels;

private:
    bench::IdlePins idle;
    std::map<unsigned, unsigned> numbers;
};

struct Page {
    double nanoseconds;
    Levels levels;
};

/** @param numbers GPIO numbers of the LCD's pins that are real, and those of their lines */
Page print(unsigned char chipId, const std::map<unsigned, unsigned>& numbers)
{
    PartlyRealPins pins(chipId, numbers);
    frontpanelhw::fp::IndoorFpImpl panel(pins, bench::keyBase, bench::ledBase, bench::lcdBase, 3, 8, {}, {});
    frontpanelhw::drawing::DisplayBuffer page(25, 3);
    for (unsigned line = 0; line < page.getLineCount(); ++line) {
        page.setLineContent(line, u"abcdefghijklmnopqrstuvwxy");
    }
    panel.printBuffer(page); // from here on the cursor is where the page before left it
    pins.levels = {};
    std::vector<double> times(rounds);
    for (double& time : times) {
        time = bench::nanosecondsEach(1, [&](int) { panel.printBuffer(page); });
    }
    return {bench::median(times), {pins.levels.written / rounds, pins.levels.changed / rounds}};
}

/** @param lines GPIO numbers of the kernel */
double timeOfPage(unsigned char chipId, const std::vector<unsigned>& lines, double idleTime)
{
    double time = idleTime;
    for (unsigned done = 0; done < lcdLines;) {
        std::map<unsigned, unsigned> numbers;
        for (const unsigned line : lines) {
            if (done < lcdLines) {
                numbers[bench::lcdBase + done++] = line;
            }
        }
        time += print(chipId, numbers).nanoseconds - idleTime;
    }
    return time;
}

void report(const std::string& chip, unsigned char chipId, const std::vector<unsigned>& lines)
{
    const Page idle = print(chipId, {});
    setenv("SYSFSGPIO_BACKEND", "chardev", 1);
    const double device = timeOfPage(chipId, lines, idle.nanoseconds);
    setenv("SYSFSGPIO_BACKEND", "sysfs", 1);
    const double sysfs = timeOfPage(chipId, lines, idle.nanoseconds);
    std::printf("page, %s, in the emulated ARM kernel, the character device against sysfs\t%.0f\t%.0f\n", chip.c_str(),
                device, sysfs);
    std::printf("page, %s, levels that change against levels written\t%u\t%u\n", chip.c_str(), idle.levels.changed,
                idle.levels.written);
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: kernel-page GPIO..., of lines that nobody holds\n");
        return 2;
    }
    std::cout.rdbuf(nullptr); // the log lines of the panels
    try {
        std::vector<unsigned> lines;
        for (int i = 1; i < argc; ++i) {
            lines.push_back(static_cast<unsigned>(std::stoul(argv[i])));
        }
        report("RA8803", bench::ra8803, lines);
        report("RA8806", bench::ra8806, lines);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kernel-page: %s\n", error.what());
        return 1;
    }
    return 0;
}
