#include "tools/Interrupt.h"

#include "tools/KeyEventQueue.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using tools::Interrupt;
using Wakeup = Interrupt::Wakeup;

TEST(Interrupt, EndsEveryWaitOnceASignalCameAndLeavesNoneBehind)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(signal);
        std::signal(signal, SIG_DFL);
        Interrupt interrupt;
        tools::KeyEventQueue events;
        events.push({0, tools::KeyEvent::Change::Pressed, 0});
        kill(getpid(), signal);
        EXPECT_EQ(interrupt.wait(std::nullopt, events.descriptor()), Wakeup::Interrupted);
        kill(getpid(), signal); // would end this process if it were still pending at the end
        EXPECT_EQ(interrupt.wait(Interrupt::Clock::now()), Wakeup::Interrupted);
    }
}

TEST(Interrupt, WaitsForKeyEventsAndForTheDeadline)
{
    Interrupt interrupt;
    tools::KeyEventQueue events;
    const auto deadline = Interrupt::Clock::now() + 30ms;
    EXPECT_EQ(interrupt.wait(deadline, events.descriptor()), Wakeup::TimedOut);
    EXPECT_GE(Interrupt::Clock::now(), deadline);

    events.push({1, tools::KeyEvent::Change::Pressed, 0});
    events.push({2, tools::KeyEvent::Change::Released, 0});
    EXPECT_EQ(interrupt.wait(std::nullopt, events.descriptor()), Wakeup::Readable);
    std::string taken;
    for (const tools::KeyEvent& event : events.take()) {
        taken += describe(event) + "; ";
    }
    EXPECT_EQ(taken, "key 1 pressed; key 2 released; ");
    EXPECT_EQ(interrupt.wait(Interrupt::Clock::now(), events.descriptor()), Wakeup::TimedOut);
    EXPECT_TRUE(events.take().empty());
}

TEST(Interrupt, GoesOnAfterABrokenPipeAndAHangupThatIsIgnored)
{
    const auto previous = std::signal(SIGHUP, SIG_IGN);
    {
        Interrupt interrupt;
        raise(SIGPIPE);
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
