/*
 * What the waits of the LCD bus cost: those that the library asks for, and what they take with the kernel's usual timer
 * slack, with a slack of 1 ns and under a real-time policy. The pins are those of a board in this process, whose own
 * time is shown, too. All are measured in turns in one run, since machines change their speed; the ratios count.
 */
#include "frontpanelhw/drawing/DisplayBuffer.h"
#include "frontpanelhw/fp/IndoorFpImpl.h"
#include "panelsim/Board.h"
#include "panelsim/BoardConfig.h"
#include "panelsim/BoardGpioFactory.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <iostream>
#include <memory>
#include <sched.h>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>
#include <vector>

namespace {

using Nanoseconds = std::chrono::nanoseconds;

/** The sleeps of the library, which all go through nanosleep. */
struct Waits {
    std::uint64_t count = 0;
    std::uint64_t strobes = 0; ///< waits of 10 us: one in each bus cycle
    Nanoseconds asked{0};
    bool skipped = false;
};
Waits waits;

} // namespace

// Stands before the C library's in the lookup of every library of this process.
extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* wanted, timespec* /*remaining*/)
{
    ++waits.count;
    waits.strobes += wanted->tv_sec == 0 && wanted->tv_nsec == 10000 ? 1 : 0;
    waits.asked += std::chrono::seconds(wanted->tv_sec) + Nanoseconds(wanted->tv_nsec);
    if (waits.skipped) {
        return 0;
    }
    errno = clock_nanosleep(CLOCK_MONOTONIC, 0, wanted, nullptr);
    return errno == 0 ? 0 : -1;
}

namespace {

/** A way for this thread to sleep. */
struct Setting {
    const char* name;
    std::function<bool()> enter; ///< @return false when this machine does not permit it
    bool skipsWaits = false;
};

bool setSlack(unsigned long nanoseconds)
{
    return prctl(PR_SET_TIMERSLACK, nanoseconds, 0UL, 0UL, 0UL) == 0; // 0 is the slack that the thread began with
}

bool setPolicy(int policy, int priority)
{
    sched_param parameters{};
    parameters.sched_priority = priority;
    return sched_setscheduler(0, policy, &parameters) == 0;
}

const std::vector<Setting>& settings()
{
    static const std::vector<Setting> all = {
        {"waits left out", [] { return true; }, true},
        {"timer slack as started", [] { return setSlack(0); }},
        {"timer slack 1 ns", [] { return setSlack(1); }},
        {"SCHED_FIFO", [] { return setPolicy(SCHED_FIFO, 1); }},
    };
    return all;
}

frontpanelhw::drawing::DisplayBuffer pageOf(const std::string& inversions)
{
    frontpanelhw::drawing::DisplayBuffer page(25, 3);
    for (unsigned line = 0; line < page.getLineCount(); ++line) {
        page.setLineContent(line, u"abcdefghijklmnopqrstuvwxy");
        for (unsigned column = 0; column < page.getCharCount(); ++column) {
            page.setInverted(line, inversions[column % inversions.size()] == 'i', column, column);
        }
    }
    return page;
}

/** A panel, brought up on a board of its own. */
struct FittedPanel {
    explicit FittedPanel(panelsim::ChipVariant chip) : board(configOf(chip)), factory(board)
    {
        panel = std::make_unique<frontpanelhw::fp::IndoorFpImpl>(factory, 10, 20, 40, 3, 8, std::vector<unsigned>(),
                                                                 std::vector<unsigned>());
    }

    static panelsim::BoardConfig configOf(panelsim::ChipVariant chip)
    {
        panelsim::BoardConfig config;
        config.chip = chip;
        return config;
    }

    panelsim::Board board;
    panelsim::BoardGpioFactory factory;
    std::unique_ptr<frontpanelhw::fp::IndoorFpImpl> panel;
};

/** @return the time that the work takes in each setting, the median of some rounds, 0 for one not permitted */
std::vector<double> measure(int rounds, const std::function<void()>& work)
{
    std::vector<std::vector<double>> times(settings().size());
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < settings().size(); ++i) {
            const Setting& setting = settings()[i];
            if (!setting.enter()) {
                continue;
            }
            waits.skipped = setting.skipsWaits;
            const auto start = std::chrono::steady_clock::now();
            work();
            times[i].push_back(
                std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
            waits.skipped = false;
            setPolicy(SCHED_OTHER, 0);
            setSlack(0);
        }
    }
    std::vector<double> medians;
    for (auto& ofSetting : times) {
        std::sort(ofSetting.begin(), ofSetting.end());
        medians.push_back(ofSetting.empty() ? 0 : ofSetting[ofSetting.size() / 2]);
    }
    return medians;
}

void report(const char* what, int rounds, const panelsim::Board* board, const std::function<void()>& work)
{
    work(); // from here on the cursor is where the page before left it
    const std::uint64_t operationsBefore = board != nullptr ? board->pinOperations() : 0;
    waits = {};
    work();
    const Waits asked = waits;
    const std::uint64_t operations = board != nullptr ? board->pinOperations() - operationsBefore : 0;
    const double microseconds = std::chrono::duration<double, std::micro>(asked.asked).count();
    std::printf("%s\n  %llu bus cycles, %llu waits, total wait %.0f us", what,
                static_cast<unsigned long long>(asked.strobes), static_cast<unsigned long long>(asked.count),
                microseconds);
    if (operations != 0) {
        std::printf(", %llu pin operations", static_cast<unsigned long long>(operations));
    }
    std::printf("\n");
    const std::vector<double> times = measure(rounds, work);
    for (std::size_t i = 0; i < times.size(); ++i) {
        if (times[i] == 0) {
            std::printf("  %-24s not permitted\n", settings()[i].name);
        } else {
            std::printf("  %-24s %9.0f us   ratio to the waits %6.2f\n", settings()[i].name, times[i],
                        times[i] / microseconds);
        }
    }
}

/** @return the time of a system call that writes one byte and does nothing with it, in microseconds */
double bareWriteTime()
{
    constexpr int writes = 100000;
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < writes; ++i) {
        if (pwrite(nowhere, "1", 1, 0) != 1) {
            return 0;
        }
    }
    const std::chrono::duration<double, std::micro> taken = std::chrono::steady_clock::now() - start;
    close(nowhere);
    return taken.count() / writes;
}

void reportChip(const char* name, panelsim::ChipVariant chip)
{
    FittedPanel fitted(chip);
    const auto print = [&fitted](const frontpanelhw::drawing::DisplayBuffer& page) {
        return [&fitted, page] { fitted.panel->printBuffer(page); };
    };
    const std::string of = std::string(", ") + name;
    report(("A page, nothing inverted" + of).c_str(), 100, &fitted.board, print(pageOf("n")));
    report(("A page with every other cell inverted" + of).c_str(), 20, &fitted.board, print(pageOf("in")));
    report(("The constructor of the panel" + of).c_str(), 3, nullptr, [chip] { const FittedPanel started(chip); });
}

} // namespace

int main()
{
    std::cout.rdbuf(nullptr); // the log lines of the panels
    std::printf("timer slack as started: %d ns\n", prctl(PR_GET_TIMERSLACK, 0UL, 0UL, 0UL, 0UL));
    std::printf("a write of one byte to /dev/null: %.2f us\n", bareWriteTime());
    reportChip("RA8803", panelsim::ChipVariant::Ra8803);
    reportChip("RA8806", panelsim::ChipVariant::Ra8806);
    return 0;
}
