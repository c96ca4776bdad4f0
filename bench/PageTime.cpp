/*
 * How close pages and the start of the indoor panel come to the waits of the LCD bus, on pins that do nothing: each
 * operation against only the waits that it makes, and what the timer slack costs a page. The two sides of a row take
 * turns in pairs, since machines change their speed. A line per row, with tabs between: name, measured and floor in
 * microseconds. The floor is a median; measured is that and the median of what a round takes more than its floor.
 * page-time --waits: what each operation waits for instead: name, bus cycles, waits, and their sum in microseconds.
 */
#include "bench/IdlePins.h"
#include "bench/Timing.h"
#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/fp/IndoorFpImpl.h"

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <functional>
#include <iostream>
#include <string>
#include <sys/prctl.h>
#include <utility>
#include <vector>

namespace {

using frontpanelhw::drawing::DisplayBuffer;
using frontpanelhw::fp::IndoorFpImpl;
using Waits = std::vector<timespec>;
using Work = std::function<void()>;

Waits* recorded = nullptr; ///< takes the waits while work is recorded; else null

} // namespace

// Stands before the C library's in the lookup of every library of this process.
extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* wanted, timespec* remaining)
{
    if (recorded != nullptr) {
        recorded->push_back(*wanted);
    }
    errno = clock_nanosleep(CLOCK_MONOTONIC, 0, wanted, remaining);
    return errno == 0 ? 0 : -1;
}

namespace {

constexpr unsigned long slackAsStarted = 0;
constexpr unsigned long leastSlack = 1;

/** @param nanoseconds of this thread's timers */
void setSlack(unsigned long nanoseconds)
{
    prctl(PR_SET_TIMERSLACK, nanoseconds, 0UL, 0UL, 0UL);
}

Waits record(const Work& work)
{
    Waits waits;
    recorded = &waits;
    work();
    recorded = nullptr;
    return waits;
}

void replay(const Waits& waits)
{
    for (const timespec& wait : waits) {
        nanosleep(&wait, nullptr);
    }
}

double microsecondsOf(const Work& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
}

/**
 * Each round does both, and the one that goes first changes. The median of the differences is reported, not the
 * difference of two medians: other work on the machine delays some rounds by far more than the difference.
 */
void report(const std::string& row, unsigned rounds, const Work& measured, const Work& floor)
{
    std::vector<double> floorTimes;
    std::vector<double> differences;
    for (unsigned round = 0; round < rounds; ++round) {
        const bool measuredFirst = round % 2 == 0;
        const double first = microsecondsOf(measuredFirst ? measured : floor);
        const double second = microsecondsOf(measuredFirst ? floor : measured);
        floorTimes.push_back(measuredFirst ? second : first);
        differences.push_back(measuredFirst ? first - second : second - first);
    }
    const double floorTime = bench::median(floorTimes);
    std::printf("%s\t%.1f\t%.1f\n", row.c_str(), floorTime + bench::median(differences), floorTime);
    std::fflush(stdout);
}

/** An operation of the panel on one of the chips. */
struct Operation {
    std::string name;
    unsigned rounds;
    Work work;
};

void reportAgainstWaits(const Operation& operation)
{
    operation.work(); // from here on the cursor is where the page before left it
    const Waits waits = record(operation.work);
    setSlack(leastSlack);
    report(operation.name + ", slack 1 ns", operation.rounds, operation.work, [&waits] { replay(waits); });
    setSlack(slackAsStarted);
}

void reportSlack(const Operation& operation)
{
    const auto with = [&operation](unsigned long slack) {
        return [&operation, slack] {
            setSlack(slack);
            operation.work();
        };
    };
    report(operation.name + ", slack as started, against slack 1 ns", operation.rounds, with(slackAsStarted),
           with(leastSlack));
    setSlack(slackAsStarted);
}

void reportWaits(const Operation& operation)
{
    operation.work();
    std::size_t cycles = 0;
    double microseconds = 0;
    const Waits waits = record(operation.work);
    for (const timespec& wait : waits) {
        cycles += wait.tv_sec == 0 && wait.tv_nsec == 10000 ? 1 : 0; // the strobe of a bus cycle
        microseconds += static_cast<double>(wait.tv_sec) * 1e6 + static_cast<double>(wait.tv_nsec) / 1e3;
    }
    std::printf("%s\t%zu\t%zu\t%.1f\n", operation.name.c_str(), cycles, waits.size(), microseconds);
}

IndoorFpImpl makePanel(bench::IdlePins& pins)
{
    return {pins, bench::keyBase, bench::ledBase, bench::lcdBase, 3, 8, {}, {}};
}

DisplayBuffer pageOf(bool alternating)
{
    DisplayBuffer page(25, 3);
    for (unsigned line = 0; line < page.getLineCount(); ++line) {
        page.setLineContent(line, u"abcdefghijklmnopqrstuvwxy");
        for (unsigned column = 0; column < page.getCharCount(); ++column) {
            page.setInverted(line, alternating && column % 2 == 0, column, column);
        }
    }
    return page;
}

void reportChip(const std::string& chip, unsigned char id, bool onlyWaits)
{
    bench::IdlePins pins(id);
    auto panel = makePanel(pins);
    const DisplayBuffer plain = pageOf(false);
    const DisplayBuffer alternating = pageOf(true);
    const Operation page{"page, " + chip, 151, [&] { panel.printBuffer(plain); }};
    const Operation inverted{"page with every other cell inverted, " + chip, 75,
                             [&] { panel.printBuffer(alternating); }};
    const Operation construction{"construction of Indoor, " + chip, 5, [&] { makePanel(pins); }};
    for (const Operation& operation : {page, inverted, construction}) {
        (onlyWaits ? reportWaits : reportAgainstWaits)(operation);
    }
    if (!onlyWaits) {
        reportSlack(page);
    }
}

} // namespace

int main(int argc, char* argv[])
{
    const bool onlyWaits = argc == 2 && std::string(argv[1]) == "--waits";
    if (argc > 1 && !onlyWaits) {
        std::fprintf(stderr, "page-time: no argument, or --waits\n");
        return 2;
    }
    std::cout.rdbuf(nullptr); // the log lines of the panels
    for (const auto& [chip, id] : {std::pair("RA8803", bench::ra8803), std::pair("RA8806", bench::ra8806)}) {
        reportChip(chip, id, onlyWaits);
    }
    return 0;
}
