#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/fp/IndoorFpImpl.h"
#include "panelsim/board/Board.h"
#include "panelsim/board/BoardGpioFactory.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/VirtualTime.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <malloc.h>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unistd.h>

/**
 * @file
 * A long life of the indoor panel on a simulated board, with the waits of the bus and of polling switched off: pages,
 * scans of the keys with presses, LEDs, and a panel constructed again in each round. What the process holds must be the
 * same after each round, and the display must show each page.
 *
 *     soak [PAGES [POLLS]]     a million and ten million, unless given
 */

namespace {

constexpr std::uint64_t rounds = 100;
constexpr std::uint64_t polledAtOnce = 1000;

std::atomic<std::size_t> heldObjects{0};
std::atomic<std::size_t> heldBytes{0};

/** What a process may lose bit by bit. */
struct Holdings {
    std::size_t objects = 0;  ///< on the heap
    std::size_t bytes = 0;    ///< on the heap
    std::size_t resident = 0; ///< bytes of memory in use, code and stacks included
    std::size_t descriptors = 0;
    std::size_t threads = 0;
};

std::size_t entriesOf(const char* directory)
{
    const std::filesystem::directory_iterator entries(directory);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

Holdings takeStock()
{
    std::size_t size = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return {heldObjects, heldBytes, resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)),
            entriesOf("/proc/self/fd"), entriesOf("/proc/self/task")};
}

std::uint64_t numberFrom(const char* text)
{
    std::uint64_t number = 0;
    const char* const end = text + std::strlen(text);
    const auto [last, error] = std::from_chars(text, end, number);
    if (error != std::errc() || last != end || number < 2 * rounds) {
        throw std::invalid_argument(std::string(text) + " is not a number from " + std::to_string(2 * rounds) + " on");
    }
    return number;
}

class Soak {
public:
    explicit Soak(panelsim::ChipVariant chip) : board(configOf(chip), [this] { return time.now(); }) {}

    /** A panel's life. */
    void round(std::uint64_t pages, std::uint64_t polls)
    {
        const panelsim::BoardConfig& wiring = board.getConfig();
        panelsim::BoardGpioFactory factory(board);
        frontpanelhw::fp::IndoorFpImpl indoor(factory, wiring.keyGpioBase, wiring.ledGpioBase, wiring.lcdGpioBase,
                                              wiring.keyCount, wiring.ledCount, {}, {});
        frontpanelhw::fp::ILcdFp& panel = indoor;
        panel.connectAnyKeyChangedCb([this](unsigned, bool) { ++events; });
        panel.start(true, 1);
        time.awaitSleeper();
        for (std::uint64_t left = polls - 1; left > 0 || pages > 0;) {
            const std::uint64_t now = std::min(left, polledAtOnce);
            left -= now;
            scans % 2 == 0 ? board.press(0) : board.release(0);
            time.wake(now);
            // Pages are printed while the keys are polled.
            const std::uint64_t share = left == 0 ? pages : std::min<std::uint64_t>(pages, pages * now / (left + now));
            for (std::uint64_t i = 0; i < share; ++i) {
                print(panel);
            }
            pages -= share;
            time.awaitSleeper();
            ++scans;
            panel.setLed(static_cast<unsigned>(scans % wiring.ledCount), scans % 2 == 0);
            log.take();
        }
        panel.stop();
    }

    std::uint64_t keyEvents() const { return events; }
    std::uint64_t pagesPrinted() const { return printed; }
    std::uint64_t pinOperations() const { return board.pinOperations(); }
    std::uint64_t busFaults() const { return board.busFaultCount(); }

private:
    static panelsim::BoardConfig configOf(panelsim::ChipVariant chip)
    {
        panelsim::BoardConfig config;
        config.chip = chip;
        return config;
    }

    /** Each page differs from the one before it, in its text and in what is inverted. */
    void print(frontpanelhw::fp::ILcdFp& panel)
    {
        const auto mark = static_cast<unsigned>(printed % panel.getChars());
        const unsigned line = static_cast<unsigned>(printed) % panel.getLines();
        const auto letter = static_cast<char16_t>(u'A' + printed % 26);
        frontpanelhw::drawing::DisplayBuffer page(panel.getChars(), panel.getLines());
        page.setLineContent(line, std::u16string(panel.getChars(), letter));
        page.setInverted(line, true, mark, mark);
        const bool done = panel.printBuffer(page);
        ++printed;
        const panelsim::LcdView shown = board.view().lcd.value();
        const panelsim::LcdCell& marked = shown.lines.at(line).at(mark);
        const panelsim::LcdCell& other = shown.lines.at((line + 1) % panel.getLines()).at(mark);
        if (!done || marked.code != letter || !marked.inverted || other.code != ' ' || other.inverted) {
            throw std::runtime_error("page " + std::to_string(printed) + " is not what the display shows");
        }
    }

    VirtualTime time;
    CapturedOutput log{[this](std::string_view line) {
        if (line == "INFO: KeyHandler stop called") {
            time.wake();
        }
    }};
    panelsim::Board board;
    std::uint64_t scans = 0;
    std::uint64_t printed = 0;
    std::uint64_t events = 0;
};

/** @return whether nothing grew */
bool soak(const char* name, panelsim::ChipVariant chip, std::uint64_t pages, std::uint64_t polls)
{
    const auto start = std::chrono::steady_clock::now();
    Soak life(chip);
    Holdings first;
    Holdings last;
    std::size_t mostBytes = 0;
    for (std::uint64_t i = 0; i < rounds; ++i) {
        const auto shareOf = [i](std::uint64_t all) { return all * (i + 1) / rounds - all * i / rounds; };
        life.round(shareOf(pages), shareOf(polls));
        last = takeStock();
        // The first rounds fill what the C library and the streams keep for the next time.
        first = i == 1 ? last : first;
        mostBytes = i >= 1 ? std::max(mostBytes, last.bytes) : 0;
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    std::printf("%s: %llu panels, %llu pages, %llu polls, %llu key events, %llu pin operations, %.0f s\n", name,
                static_cast<unsigned long long>(rounds), static_cast<unsigned long long>(life.pagesPrinted()),
                static_cast<unsigned long long>(polls), static_cast<unsigned long long>(life.keyEvents()),
                static_cast<unsigned long long>(life.pinOperations()), taken.count());
    bool constant = life.busFaults() == 0;
    const auto compare = [&](const char* what, std::size_t after, std::size_t end, std::size_t tolerated) {
        const bool same = end <= after + tolerated && after <= end + tolerated;
        std::printf("  %-24s %9zu after the second panel, %9zu at the end: %s\n", what, after, end,
                    same ? "constant" : "NOT CONSTANT");
        constant &= same;
    };
    compare("objects on the heap", first.objects, last.objects, 0);
    compare("bytes on the heap", first.bytes, last.bytes, 0);
    compare("after any panel", first.bytes, mostBytes, 0);
    compare("bytes resident", first.resident, last.resident, std::size_t{256} * 1024);
    compare("descriptors", first.descriptors, last.descriptors, 0);
    compare("threads", first.threads, last.threads, 0);
    std::printf("  %-24s %9llu\n", "faults on the bus", static_cast<unsigned long long>(life.busFaults()));
    return constant;
}

} // namespace

void* operator new(std::size_t size)
{
    void* const memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++heldObjects;
    heldBytes += malloc_usable_size(memory);
    return memory;
}

void operator delete(void* memory) noexcept
{
    if (memory != nullptr) {
        --heldObjects;
        heldBytes -= malloc_usable_size(memory);
    }
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    operator delete(memory);
}

int main(int argc, char** argv)
{
    try {
        const std::uint64_t pages = argc > 1 ? numberFrom(argv[1]) : 1'000'000;
        const std::uint64_t polls = argc > 2 ? numberFrom(argv[2]) : 10'000'000;
        bool constant = soak("RA8803", panelsim::ChipVariant::Ra8803, pages / 2, polls / 2);
        constant &= soak("RA8806", panelsim::ChipVariant::Ra8806, pages - pages / 2, polls - polls / 2);
        std::puts(constant ? "soak: memory, descriptors and threads are constant" : "soak: failed, see above");
        return constant ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "soak: %s\n", error.what());
        return 1;
    }
}
