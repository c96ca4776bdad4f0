#include "frontpanelhw/fp/FpBase.h"
#include "frontpanelhw/fp/IndoorFpImpl.h"
#include "frontpanelhw/handler/KeyEventQueue.h"
#include "panelsim/board/Board.h"
#include "panelsim/board/BoardGpioFactory.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/VirtualTime.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <poll.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using frontpanelhw::handler::KeyAction;
using frontpanelhw::handler::KeyEventQueue;

namespace {

/** Both panels on boards of their own. Nothing sleeps: keys are scanned without a pause. */
class ThreadsTest : public testing::Test {
protected:
    /** Presses and releases key 0 until the condition holds. */
    void typeUntil(const std::function<bool()>& condition)
    {
        for (bool pressed = false; !condition(); pressed = !pressed) {
            pressed ? board.release(0) : board.press(0);
            std::this_thread::yield();
        }
    }

    VirtualTime time{VirtualTime::Others::Run};
    CapturedOutput log;
    std::atomic<unsigned> calls{0}; ///< of callbacks
    panelsim::Board board{panelsim::boardOf(panelsim::panelKind("outdoor"))};
    panelsim::BoardGpioFactory factory{board};
    std::unique_ptr<frontpanelhw::fp::FpBase> panel = std::make_unique<frontpanelhw::fp::FpBase>(
        factory, board.getConfig().keyGpioBase, 2U, board.getConfig().ledGpioBase, 8U, std::vector<unsigned>(),
        std::vector<unsigned>());
};

} // namespace

TEST_F(ThreadsTest, NoCallbackComesOnceStopHasReturned)
{
    bool stopped = false; // unguarded: a callback beside the other thread's own use of it is a race
    unsigned late = 0;
    panel->connectAnyKeyChangedCb([&](unsigned, bool) { late += stopped ? 1 : 0; });
    for (unsigned round = 0; round < 200; ++round) {
        stopped = false;
        ASSERT_TRUE(panel->start(false, 0));
        EXPECT_TRUE(panel->isRunning());
        round % 2 == 0 ? board.press(0) : board.release(0);
        panel->stop();
        stopped = true;
    }
    EXPECT_EQ(late, 0U);
}

TEST_F(ThreadsTest, TwoPanelsRunAtOnceWhileCallbackAndApplicationSwitchLedsUnderTheApplicationsLock)
{
    panelsim::Board indoorBoard{panelsim::BoardConfig(), [this] { return time.now(); }};
    panelsim::BoardGpioFactory indoorFactory(indoorBoard);
    frontpanelhw::fp::IndoorFpImpl indoor(indoorFactory, 10, 20, 40, 3, 8, {}, {});
    static_cast<frontpanelhw::fp::ILcdFp&>(indoor).start(false, 0);
    indoor.connectAnyKeyChangedCb([this](unsigned, bool) { ++calls; });
    indoorBoard.press(2); // and held, so that it repeats
    std::mutex lock;
    for (unsigned round = 0; round < 30; ++round) {
        const unsigned before = calls;
        panel->start(false, 0);
        std::atomic<bool> done{false};
        std::thread watcher([&] {
            while (!done) {
                EXPECT_TRUE(indoor.isRunning() && panel->isRunning());
            }
        });
        EXPECT_TRUE(indoor.restartDisplay() && indoor.printBuffer(frontpanelhw::drawing::DisplayBuffer(25, 3)));
        typeUntil([&] {
            const std::lock_guard<std::mutex> guard(lock);
            // Also replaced while a call of it waits for the lock.
            panel->connectAnyKeyChangedCb([&](unsigned, bool) {
                const std::lock_guard<std::mutex> guardOfCall(lock);
                panel->setLed(1, calls++ % 2 == 0);
            });
            panel->setLed(0, true);
            EXPECT_TRUE(board.view().leds.at(0));
            return calls > before + 10;
        });
        done = true;
        watcher.join();
        panel->stop(); // while calls may still come
        EXPECT_FALSE(board.view().leds.at(0) || board.view().leds.at(1));
    }
    EXPECT_EQ(indoorBoard.busFaultCount(), 0U);
}

TEST_F(ThreadsTest, APollLoopAndAWaitSeeTheSameEvents)
{
    std::atomic<unsigned> changes{0};
    KeyEventQueue queues[2];
    std::string seen[2];
    panel->connectAnyKeyChangedCb([&, first = queues[0].callback(), second = queues[1].callback(),
                                   held = false](unsigned key, bool level) mutable {
        first(key, level);
        second(key, level);
        changes += level != std::exchange(held, level) ? 1 : 0;
    });
    // Repeats that wait may have been merged in one queue only.
    const auto readAll = [&](int queue, int timeout) {
        pollfd readable{queues[queue].descriptor(), POLLIN, 0};
        while (timeout < 0 || poll(&readable, 1, -1) == 1) {
            const auto event = queues[queue].next(std::chrono::milliseconds(timeout));
            if (!event) {
                return;
            }
            seen[queue] += event->action == KeyAction::Repeated ? "" : event->action == KeyAction::Pressed ? "p" : "r";
        }
    };
    std::thread poller(readAll, 0, 0);
    std::thread waiter(readAll, 1, -1);
    panel->start(false, 0);
    typeUntil([&] { return changes > 100; }); // few enough for queues that nobody empties meanwhile
    panel->stop();
    queues[0].close();
    queues[1].close();
    poller.join();
    waiter.join();
    EXPECT_EQ(seen[0], seen[1]);
    EXPECT_GE(seen[0].size(), 100U);
}

#ifndef NDEBUG
TEST_F(ThreadsTest, StoppingOrDestroyingFromTheCallbackIsReported)
{
    for (const bool destroys : {false, true}) {
        EXPECT_EXIT(
            {
                panel->connectAnyKeyChangedCb([&](unsigned, bool) { destroys ? panel.reset() : panel->stop(); });
                panel->start(false, 0);
                typeUntil([] { return false; });
            },
            testing::KilledBySignal(SIGABRT), "panel stopped or destroyed by its own key callback");
    }
}
#endif
