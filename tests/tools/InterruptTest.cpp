#include "tools/Interrupt.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <optional>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using tools::Interrupt;

TEST(Interrupt, WaitsForADescriptorUntilTheDeadlineAndTheEndAndIgnoresPipesAndHangups)
{
    const auto previous = std::signal(SIGHUP, SIG_IGN);
    Interrupt interrupt;
    raise(SIGPIPE);
    kill(getpid(), SIGHUP);
    std::signal(SIGHUP, previous);
    const int readable = eventfd(1, 0);
    const auto deadline = Interrupt::Clock::now() + 30ms;
    EXPECT_TRUE(interrupt.wait(deadline, readable));
    EXPECT_FALSE(interrupt.wait(deadline));
    EXPECT_GE(Interrupt::Clock::now(), deadline);
    EXPECT_FALSE(interrupt.wait(deadline, readable));
    interrupt.end();
    EXPECT_FALSE(interrupt.wait(std::nullopt, readable));
}

TEST(Interrupt, EndsTheProcessOnlyWhenNobodyWaitedOrItsOutputStalls)
{
    const auto beInterrupted = [](int signal, bool waits, bool outputStalls) {
        int ends[2] = {};
        for (int made = pipe2(ends, O_NONBLOCK); made == 0 && outputStalls && write(ends[1], "full", 4) > 0;) {
        }
        dup2(ends[1], STDOUT_FILENO);
        std::signal(signal, SIG_DFL);
        std::optional<Interrupt> interrupt(std::in_place);
        kill(getpid(), signal);
        if (waits) {
            interrupt->wait(std::nullopt);
            std::this_thread::sleep_for(1500ms);
        }
        interrupt.reset();
        std::_Exit(0);
    };
    EXPECT_EXIT(beInterrupted(SIGINT, false, false), testing::KilledBySignal(SIGINT), "");
    EXPECT_EXIT(beInterrupted(SIGHUP, true, true), testing::KilledBySignal(SIGHUP), "");
    EXPECT_EXIT(beInterrupted(SIGINT, true, false), testing::ExitedWithCode(0), "");
}

} // namespace
