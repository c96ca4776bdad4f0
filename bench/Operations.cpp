/*
 * operations NAME COUNT: performs one operation of the library, or its floor, COUNT times on pins that do nothing and
 * without waits. Counted under callgrind, two counts give the exact number of instructions of one.
 * operations --names: all names. operations --allocations: how often each operation takes memory from the heap.
 */
#include "bench/Allocations.h"
#include "bench/IdlePins.h"
#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/drawing/DisplayLine.h"
#include "frontpanelhw/fp/FpBase.h"
#include "frontpanelhw/fp/IndoorFpImpl.h"
#include "frontpanelhw/handler/GpioVectorCreator.h"
#include "frontpanelhw/handler/KeyHandler.h"
#include "frontpanelhw/lcd/LcdRa8822.h"
#include "frontpanelhw/lcd/LcdRa8822GpioCreator.h"
#include "sysfs/PinDirectionEn.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

namespace {

using frontpanelhw::drawing::DisplayBuffer;
using frontpanelhw::drawing::DisplayLine;
using frontpanelhw::handler::GpioVectorCreator;
using frontpanelhw::handler::KeyHandler;
using frontpanelhw::lcd::LcdRa8822;
using frontpanelhw::lcd::LcdRa8822Gpios;
using sysfs::PinDirectionEn;

} // namespace

// Stands before the C library's in the lookup of every library of this process: no wait takes time.
extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* /*wanted*/, timespec* /*remaining*/)
{
    return 0;
}

namespace {

/** An LCD's pins, and the library's driver for them. */
struct Lcd {
    explicit Lcd(unsigned char id) : factory(id), gpios(frontpanelhw::lcd::LcdRa8822GpioCreator(factory).create())
    {
        unsigned number = bench::lcdBase;
        for (auto& data : gpios->dataGpios) {
            data->exportGpio(number++);
        }
        driver.init();
    }

    bench::IdlePins factory;
    std::unique_ptr<LcdRa8822Gpios> gpios;
    LcdRa8822 driver{*gpios, false};
};

/*
 * The floor of each bus cycle: the calls on its pins, written by hand.
 */

[[gnu::always_inline]] inline void sleepFor(long nanoseconds)
{
    timespec remaining{0, nanoseconds};
    nanosleep(&remaining, &remaining);
}

[[gnu::always_inline]] inline void setDataByHand(LcdRa8822Gpios& pins, unsigned value)
{
    pins.dataGpios[0]->setValue((value & 0x01U) != 0);
    pins.dataGpios[1]->setValue((value & 0x02U) != 0);
    pins.dataGpios[2]->setValue((value & 0x04U) != 0);
    pins.dataGpios[3]->setValue((value & 0x08U) != 0);
    pins.dataGpios[4]->setValue((value & 0x10U) != 0);
    pins.dataGpios[5]->setValue((value & 0x20U) != 0);
    pins.dataGpios[6]->setValue((value & 0x40U) != 0);
    pins.dataGpios[7]->setValue((value & 0x80U) != 0);
}

[[gnu::always_inline]] inline void setDirectionByHand(LcdRa8822Gpios& pins, PinDirectionEn direction)
{
    pins.dataGpios[0]->setDirection(direction);
    pins.dataGpios[1]->setDirection(direction);
    pins.dataGpios[2]->setDirection(direction);
    pins.dataGpios[3]->setDirection(direction);
    pins.dataGpios[4]->setDirection(direction);
    pins.dataGpios[5]->setDirection(direction);
    pins.dataGpios[6]->setDirection(direction);
    pins.dataGpios[7]->setDirection(direction);
}

[[gnu::always_inline]] inline unsigned getDataByHand(LcdRa8822Gpios& pins)
{
    return static_cast<unsigned>(pins.dataGpios[0]->getValue()) |
           static_cast<unsigned>(pins.dataGpios[1]->getValue()) << 1U |
           static_cast<unsigned>(pins.dataGpios[2]->getValue()) << 2U |
           static_cast<unsigned>(pins.dataGpios[3]->getValue()) << 3U |
           static_cast<unsigned>(pins.dataGpios[4]->getValue()) << 4U |
           static_cast<unsigned>(pins.dataGpios[5]->getValue()) << 5U |
           static_cast<unsigned>(pins.dataGpios[6]->getValue()) << 6U |
           static_cast<unsigned>(pins.dataGpios[7]->getValue()) << 7U;
}

[[gnu::always_inline]] inline void strobeByHand(LcdRa8822Gpios& pins, unsigned byte, bool registerSelect)
{
    setDataByHand(pins, byte);
    pins.registerSelectGpio->setValue(registerSelect);
    pins.chipSelectGpio->setValue(true);
    pins.readStrobeGpio->setValue(false);
    pins.writeStrobeGpio->setValue(true);
    sleepFor(10000);
    pins.writeStrobeGpio->setValue(false);
    pins.chipSelectGpio->setValue(false);
}

[[gnu::always_inline]] inline void setRegisterByHand(LcdRa8822Gpios& pins, unsigned reg, bool registerSelect)
{
    strobeByHand(pins, reg, registerSelect);
    sleepFor(1000);
}

[[gnu::always_inline]] inline void writeByHand(LcdRa8822Gpios& pins, unsigned reg, unsigned value)
{
    setRegisterByHand(pins, reg, true);
    setDataByHand(pins, value);
    pins.registerSelectGpio->setValue(false);
    pins.chipSelectGpio->setValue(true);
    pins.writeStrobeGpio->setValue(true);
    sleepFor(10000);
    pins.writeStrobeGpio->setValue(false);
    pins.chipSelectGpio->setValue(false);
    sleepFor(1000);
}

[[gnu::always_inline]] inline unsigned readByHand(LcdRa8822Gpios& pins, unsigned reg)
{
    setDirectionByHand(pins, PinDirectionEn::Output);
    setRegisterByHand(pins, reg, true);
    setDirectionByHand(pins, PinDirectionEn::Input);
    pins.registerSelectGpio->setValue(false);
    pins.chipSelectGpio->setValue(true);
    pins.readStrobeGpio->setValue(true);
    sleepFor(10000);
    const unsigned value = getDataByHand(pins);
    pins.readStrobeGpio->setValue(false);
    pins.chipSelectGpio->setValue(false);
    sleepFor(1000);
    return value;
}

template <bool isRa8806>
[[gnu::always_inline]] inline void writeDataByHand(LcdRa8822Gpios& pins, unsigned value)
{
    if constexpr (isRa8806) {
        setRegisterByHand(pins, 0xB0, true);
    }
    strobeByHand(pins, value, !isRa8806);
}

/** Counts down how often the last key is read; at 0 the polling ends. */
struct Scans {
    unsigned left = 0;
    std::atomic<bool>* polling = nullptr;
};

class LastKey : public sysfs::ISysfsGpio {
public:
    explicit LastKey(Scans& itsScans) : scans(itsScans) {}

    bool init(bool /*inverted*/, PinDirectionEn /*direction*/, bool /*initialValue*/) override { return true; }
    void deinit() override {}
    void setDirection(PinDirectionEn /*direction*/) override {}
    bool setValue(bool /*value*/) override { return true; }
    bool getValue() const override
    {
        if (--scans.left == 0 && scans.polling != nullptr) {
            *scans.polling = false;
        }
        return false;
    }
    void exportGpio(unsigned /*gpioNumber*/) override {}
    unsigned getGpioNumber() const override { return 0; }

private:
    Scans& scans;
};

/** Keys that do nothing, the last of which counts the scans. */
class CountedKeys : public sysfs::ISysfsGpioFactory {
public:
    CountedKeys(unsigned count, Scans& itsScans) : idleLeft(count - 1), scans(itsScans) {}

    std::unique_ptr<sysfs::ISysfsGpio> create() const override
    {
        return idleLeft-- != 0 ? idle.create() : std::make_unique<LastKey>(scans);
    }

private:
    mutable unsigned idleLeft;
    Scans& scans;
    bench::IdlePins idle{bench::ra8806};
};

void scanKeys(unsigned keyCount, unsigned times)
{
    Scans scans;
    const CountedKeys keys(keyCount, scans);
    KeyHandler handler(std::make_unique<GpioVectorCreator>(keys, bench::keyBase, keyCount));
    scans = {times, &handler.running};
    handler.running = true;
    handler.pollingWorker(std::chrono::milliseconds::zero());
}

/** @param read reads one key */
template <typename Read>
void readKeys(unsigned keyCount, unsigned times, const Read& read)
{
    Scans scans;
    const CountedKeys keys(keyCount, scans);
    GpioVectorCreator creator(keys, bench::keyBase, keyCount);
    const auto& pins = creator.createAndInit(false, PinDirectionEn::Input, false);
    scans.left = times;
    bool pressed = false;
    while (scans.left != 0) {
        for (const auto& pin : pins) {
            pressed |= read(*pin);
        }
    }
    if (pressed) {
        std::abort();
    }
}

frontpanelhw::fp::IndoorFpImpl makePanel(bench::IdlePins& pins)
{
    return {pins, bench::keyBase, bench::ledBase, bench::lcdBase, 3, 8, {}, {}};
}

void printPages(unsigned char id, unsigned times)
{
    bench::IdlePins pins(id);
    auto panel = makePanel(pins);
    DisplayBuffer page(panel.getChars(), panel.getLines());
    for (unsigned i = 0; i < times; ++i) {
        panel.printBuffer(page);
    }
}

void printCells(unsigned cells, unsigned times)
{
    bench::IdlePins pins(bench::ra8803);
    auto panel = makePanel(pins);
    const DisplayLine line(cells);
    for (unsigned i = 0; i < times; ++i) {
        panel.printLine(0, line);
    }
}

void startPins(unsigned pinCount, unsigned times)
{
    bench::IdlePins pins(bench::ra8803);
    std::vector<unsigned> allLeds(pinCount / 2);
    std::iota(allLeds.begin(), allLeds.end(), 0U);
    for (unsigned i = 0; i < times; ++i) {
        const frontpanelhw::fp::FpBase panel(pins, bench::keyBase, pinCount / 2, bench::ledBase, pinCount / 2, allLeds,
                                             allLeds);
    }
}

using Perform = std::function<void(unsigned times)>;

/** @return a function that does the work the given number of times on an LCD of its own */
Perform onLcd(unsigned char id, const std::function<void(Lcd& lcd, unsigned char byte)>& work)
{
    return [=](unsigned times) {
        Lcd lcd(id);
        for (unsigned i = 0; i < times; ++i) {
            work(lcd, static_cast<unsigned char>(i));
        }
    };
}

std::vector<std::pair<std::string, Perform>> operations()
{
    std::vector<std::pair<std::string, Perform>> all = {
        {"nothing", onLcd(bench::ra8803, [](Lcd&, unsigned char) {})},
        {"write", onLcd(bench::ra8803, [](Lcd& lcd, unsigned char byte) { lcd.driver.writeCmd(byte, byte); })},
        {"write-floor",
         onLcd(bench::ra8803, [](Lcd& lcd, unsigned char byte) { writeByHand(*lcd.gpios, byte, byte); })},
        {"read", onLcd(bench::ra8803, [](Lcd& lcd, unsigned char byte) { lcd.driver.readCmd(byte, byte); })},
        {"read-floor", onLcd(bench::ra8803, [](Lcd& lcd, unsigned char byte) { readByHand(*lcd.gpios, byte); })},
    };
    for (const auto& [name, id] : {std::pair("ra8803", bench::ra8803), std::pair("ra8806", bench::ra8806)}) {
        const bool isRa8806 = id == bench::ra8806;
        all.emplace_back(std::string("data-") + name,
                         onLcd(id, [](Lcd& lcd, unsigned char byte) { lcd.driver.writeData(byte); }));
        all.emplace_back(
            std::string("data-") + name + "-floor",
            isRa8806 ? onLcd(id, [](Lcd& lcd, unsigned char byte) { writeDataByHand<true>(*lcd.gpios, byte); })
                     : onLcd(id, [](Lcd& lcd, unsigned char byte) { writeDataByHand<false>(*lcd.gpios, byte); }));
        all.emplace_back(std::string("page-") + name, [id = id](unsigned times) { printPages(id, times); });
    }
    all.emplace_back("scan-floor", [](unsigned times) {
        readKeys(16, times, [](const sysfs::ISysfsGpio& key) { return key.getValue(); });
    });
    all.emplace_back("scan-locked-floor", [](unsigned times) {
        std::mutex mutex;
        readKeys(16, times, [&mutex](const sysfs::ISysfsGpio& key) {
            const std::lock_guard<std::mutex> lock(mutex);
            return key.getValue();
        });
    });
    for (const unsigned size : {16U, 256U, 1024U, 4096U}) {
        all.emplace_back("scan-" + std::to_string(size), [=](unsigned times) { scanKeys(size, times); });
        all.emplace_back("cells-" + std::to_string(size), [=](unsigned times) { printCells(size, times); });
        all.emplace_back("pins-" + std::to_string(size), [=](unsigned times) { startPins(size, times); });
    }
    return all;
}

/** Allocations on the heap: counted, and as many as the values that the operation returns or creates need. */
void reportAllocations()
{
    bench::IdlePins pins(bench::ra8803);
    auto panel = makePanel(pins);
    DisplayBuffer page(panel.getChars(), panel.getLines());
    const DisplayBuffer other(page);
    DisplayBuffer target(page);
    const DisplayLine line(panel.getChars());
    bool equal = false;
    Scans scans;
    const CountedKeys keys(16, scans);
    KeyHandler handler(std::make_unique<GpioVectorCreator>(keys, bench::keyBase, 16));
    const auto report = [](const char* what, std::size_t due, const std::function<void()>& work) {
        const std::size_t before = bench::allocations();
        work();
        std::printf("%s\t%zu\t%zu\n", what, bench::allocations() - before, due);
    };
    report("printing a line", 0, [&] { panel.printLine(0, line); });
    // getLine returns a copy.
    report("printing a page", page.getLineCount(), [&] { panel.printBuffer(page); });
    report("comparing two pages", 0, [&] { equal = page == other; });
    report("copying a page", page.getLineCount() + 1, [&] { equal = DisplayBuffer(page) == other; });
    report("copying a page over another", 0, [&] { target = page; });
    report("making a page", page.getLineCount() + 2, [] { const DisplayBuffer made(25, 3); });
    report("a scan of 16 keys", 0, [&] {
        scans = {1, &handler.running};
        handler.running = true;
        handler.pollingWorker(std::chrono::milliseconds::zero());
    });
}

/** @return 0 for what is no number */
unsigned parseCount(const char* text)
{
    char* end = nullptr;
    const unsigned long count = std::strtoul(text, &end, 10);
    return *end == '\0' ? static_cast<unsigned>(count) : 0;
}

} // namespace

int main(int argc, char* argv[])
{
    const std::string name = argc > 1 ? argv[1] : "";
    std::cout.rdbuf(nullptr); // the log lines of the panels
    if (name == "--allocations") {
        reportAllocations();
        return 0;
    }
    for (const auto& [known, perform] : operations()) {
        if (name == "--names") {
            std::printf("%s\n", known.c_str());
        } else if (name == known && argc == 3 && parseCount(argv[2]) != 0) {
            perform(parseCount(argv[2]));
            return 0;
        }
    }
    if (name != "--names") {
        std::fprintf(stderr, "operations: NAME COUNT, with a name of operations --names; or --allocations\n");
        return 2;
    }
    return 0;
}
