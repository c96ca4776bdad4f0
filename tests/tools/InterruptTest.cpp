#include "tools/Interrupt.h"

#include "tools/KeyEventQueue.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <optional>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using tools::Interrupt;
using Wakeup = Interrupt::Wakeup;

bool isBlocked(int signal)
{
    sigset_t mask{};
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
}

TEST(Interrupt, EndsEveryWaitOnceASignalCameAndLeavesNoneBehind)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(signal);
        ASSERT_FALSE(isBlocked(signal));
        std::signal(signal, SIG_DFL);
        {
            Interrupt interrupt;
            tools::KeyEventQueue events;
            events.push({0, tools::KeyEvent::Change::Pressed, 0});
            std::thread sender([signal] { kill(getpid(), signal); });
            sender.join();
            EXPECT_EQ(interrupt.wait(std::nullopt, events.descriptor()), Wakeup::Interrupted);
            kill(getpid(), signal); // would end this process if it were still pending at the end
            EXPECT_EQ(interrupt.wait(Interrupt::Clock::now()), Wakeup::Interrupted);
        }
        EXPECT_FALSE(isBlocked(signal));
    }
}

TEST(Interrupt, WaitsForKeyEventsAndForTheDeadline)
{
    Interrupt interrupt;
    tools::KeyEventQueue events;
    const auto start = Interrupt::Clock::now();
    EXPECT_EQ(interrupt.wait(start + 30ms, events.descriptor()), Wakeup::TimedOut);
    EXPECT_GE(Interrupt::Clock::now() - start, 30ms);

    std::thread panel([&events] {
        events.push({1, tools::KeyEvent::Change::Pressed, 0});
        events.push({2, tools::KeyEvent::Change::Released, 0});
    });
    EXPECT_EQ(interrupt.wait(std::nullopt, events.descriptor()), Wakeup::Readable);
    panel.join();
    const auto taken = events.take();
    ASSERT_EQ(taken.size(), 2U);
    EXPECT_EQ(taken[0].key, 1U);
    EXPECT_EQ(taken[1].key, 2U);
    EXPECT_EQ(interrupt.wait(Interrupt::Clock::now(), events.descriptor()), Wakeup::TimedOut);
    EXPECT_TRUE(events.take().empty());
}

TEST(Interrupt, GoesOnAfterAHangupThatIsIgnored)
{
    const auto previous = std::signal(SIGHUP, SIG_IGN);
    {
        Interrupt interrupt;
        raise(SIGHUP);
        EXPECT_EQ(interrupt.wait(Interrupt::Clock::now()), Wakeup::TimedOut);
    }
    std::signal(SIGHUP, previous);
}

TEST(Interrupt, LeavesASignalThatNobodyWaitedForToItsUsualEffect)
{
    const auto beInterruptedWithoutAWait = [] {
        const Interrupt interrupt;
        raise(SIGTERM);
    };
    EXPECT_EXIT(beInterruptedWithoutAWait(), testing::KilledBySignal(SIGTERM), "");
}

} // namespace
