#include "tools/Interrupt.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using tools::Interrupt;

TEST(Interrupt, EndsEveryWaitOnceASignalCameAndLeavesNoneBehind)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(signal);
        std::signal(signal, SIG_DFL);
        Interrupt interrupt;
        kill(getpid(), signal);
        EXPECT_FALSE(interrupt.wait());
        kill(getpid(), signal); // would end this process if it were still pending at the end
        interrupt.wake();
        EXPECT_FALSE(interrupt.wait());
    }
}

TEST(Interrupt, WaitsForAWakeUpAndForTheDeadlineAndIgnoresPipesAndHangups)
{
    const auto previous = std::signal(SIGHUP, SIG_IGN);
    {
        Interrupt interrupt;
        raise(SIGPIPE);
        raise(SIGHUP);
        const auto deadline = Interrupt::Clock::now() + 30ms;
        EXPECT_FALSE(interrupt.wait(deadline));
        EXPECT_GE(Interrupt::Clock::now(), deadline);
        interrupt.wake();
        EXPECT_FALSE(interrupt.wait(deadline)) << "the time is over";
        std::thread other([&interrupt] { interrupt.wake(); });
        EXPECT_TRUE(interrupt.wait());
        other.join();
        EXPECT_FALSE(interrupt.wait(Interrupt::Clock::now())) << "one wait for one wake-up";
    }
    std::signal(SIGHUP, previous);
}

TEST(Interrupt, EndsTheProcessOnlyWhenNobodyWaitedOrItsOutputStalls)
{
    const auto takeLongToEnd = [](bool outputStalls) {
        int ends[2] = {};
        for (int made = pipe2(ends, O_NONBLOCK); made == 0 && outputStalls && write(ends[1], "full", 4) > 0;) {
        }
        dup2(ends[1], STDOUT_FILENO);
        Interrupt interrupt;
        kill(getpid(), SIGINT);
        interrupt.wait();
        std::this_thread::sleep_for(outputStalls ? 30s : 1500ms);
        std::_Exit(0);
    };
    const auto beInterruptedWithoutAWait = [] {
        const Interrupt interrupt;
        kill(getpid(), SIGTERM);
    };
    EXPECT_EXIT(beInterruptedWithoutAWait(), testing::KilledBySignal(SIGTERM), "");
    EXPECT_EXIT(takeLongToEnd(true), testing::KilledBySignal(SIGINT), "");
    EXPECT_EXIT(takeLongToEnd(false), testing::ExitedWithCode(0), "");
}

} // namespace
