#include "frontpanelhw/fp/FpBase.h"
#include "frontpanelhw/fp/IndoorFpImpl.h"
#include "frontpanelhw/handler/KeyEventQueue.h"
#include "panelsim/board/Board.h"
#include "panelsim/board/BoardGpioFactory.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/VirtualTime.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using frontpanelhw::handler::KeyEventQueue;

/** Both panels on boards of their own. Nothing sleeps: keys are scanned without a pause. */
class ThreadsTest : public testing::Test {
protected:
    VirtualTime time{[](const std::string&) { return true; }};
    CapturedOutput log;
    std::atomic<unsigned> calls{0}; ///< of callbacks
    panelsim::Board board{panelsim::boardOf(panelsim::panelKind("outdoor"))};
    panelsim::BoardGpioFactory factory{board};
    std::unique_ptr<frontpanelhw::fp::FpBase> panel = std::make_unique<frontpanelhw::fp::FpBase>(
        factory, board.getConfig().keyGpioBase, 2U, board.getConfig().ledGpioBase, 8U, std::vector<unsigned>(),
        std::vector<unsigned>());
};

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
    KeyEventQueue queue;
    indoor.connectAnyKeyChangedCb(queue.callback());
    indoorBoard.press(2); // and held, so that it repeats
    std::mutex lock;
    for (unsigned round = 0; round < 30; ++round) {
        const unsigned before = calls;
        panel->start(false, 0);
        std::atomic<bool> done{false};
        std::thread watcher([&] {
            while (!done) {
                EXPECT_TRUE(indoor.isRunning() && panel->isRunning() && queue.next(std::chrono::minutes(1)));
            }
        });
        EXPECT_TRUE(indoor.restartDisplay() && indoor.printBuffer(frontpanelhw::drawing::DisplayBuffer(25, 3)));
        while (calls <= before + 10) {
            board.view().keys[0] ? board.release(0) : board.press(0);
            const std::lock_guard<std::mutex> guard(lock);
            // Also replaced while a call of it waits for the lock.
            panel->connectAnyKeyChangedCb([&](unsigned, bool) {
                const std::lock_guard<std::mutex> guardOfCall(lock);
                panel->setLed(1, calls++ % 2 == 0);
            });
            panel->setLed(0, true);
            EXPECT_TRUE(board.view().leds.at(0));
        }
        done = true;
        watcher.join();
        panel->stop(); // while calls may still come
        EXPECT_FALSE(board.view().leds.at(0) || board.view().leds.at(1));
    }
    EXPECT_EQ(time.pause(), std::chrono::milliseconds(25));
    EXPECT_EQ(indoorBoard.busFaultCount(), 0U);
}
