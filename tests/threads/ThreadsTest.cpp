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
#include <string>
#include <sys/epoll.h>
#include <thread>
#include <unistd.h>
#include <vector>

using frontpanelhw::drawing::DisplayBuffer;
using frontpanelhw::fp::FpBase;
using frontpanelhw::fp::IFp;
using frontpanelhw::fp::ILcdFp;
using frontpanelhw::fp::IndoorFpImpl;
using frontpanelhw::handler::KeyAction;
using frontpanelhw::handler::KeyEvent;
using frontpanelhw::handler::KeyEventQueue;

namespace {

/** A panel of keys and LEDs on a board of its own. Nothing sleeps: keys are scanned without a pause. */
class MisuseDeathTest : public testing::Test {
protected:
    std::unique_ptr<FpBase> makePanel()
    {
        return std::make_unique<FpBase>(factory, board.getConfig().keyGpioBase, 2U, board.getConfig().ledGpioBase, 8U,
                                        std::vector<unsigned>(), std::vector<unsigned>());
    }

    /** Presses and releases key 0 until the condition holds. */
    void typeUntil(const std::function<bool()>& condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        for (bool pressed = false; !condition(); pressed = !pressed) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline);
            pressed ? board.release(0) : board.press(0);
            std::this_thread::yield();
        }
    }

    bool isLit(unsigned led) const { return board.view().leds.at(led); }

    VirtualTime time{VirtualTime::Others::Run};
    panelsim::Board board{panelsim::boardOf(panelsim::panelKind("outdoor"))};
    panelsim::BoardGpioFactory factory{board};
};

class ThreadsTest : public MisuseDeathTest {
    CapturedOutput log;
};

std::string textOf(const std::vector<panelsim::LcdCell>& line)
{
    std::string text;
    for (const panelsim::LcdCell& cell : line) {
        text += static_cast<char>(cell.code);
    }
    return text;
}

} // namespace

TEST_F(ThreadsTest, NoCallbackComesOnceStopHasReturned)
{
    const auto panel = makePanel();
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

TEST_F(ThreadsTest, CallbackAndApplicationSwitchLedsUnderTheApplicationsLock)
{
    const auto panel = makePanel();
    std::mutex lock;
    std::atomic<unsigned> calls{0};
    const auto switchLeds = [&](unsigned, bool) {
        const std::lock_guard<std::mutex> guard(lock);
        panel->setLed(1, calls++ % 2 == 0);
        panel->setAllLeds(false);
    };
    for (unsigned round = 0; round < 30; ++round) {
        const unsigned before = calls;
        bool lit = false;
        panel->start(false, 0);
        typeUntil([&] {
            const std::lock_guard<std::mutex> guard(lock);
            lit = !lit;
            panel->connectAnyKeyChangedCb(switchLeds); // also while a call of it waits for the lock
            panel->setLed(0, lit);
            EXPECT_EQ(isLit(0), lit);
            return calls > before + 10;
        });
        panel->stop(); // while calls may still come
        EXPECT_FALSE(isLit(0) || isLit(1));
    }
}

TEST_F(ThreadsTest, AnEpollLoopAndAWaitSeeTheSameEvents)
{
    const auto panel = makePanel();
    KeyEventQueue polled;
    KeyEventQueue awaited;
    auto gone = std::make_unique<KeyEventQueue>();
    std::atomic<unsigned> changes{0};
    panel->connectAnyKeyChangedCb([&, callbacks = std::vector{polled.callback(), awaited.callback(), gone->callback()},
                                   held = false](unsigned key, bool level) mutable {
        for (const auto& callback : callbacks) {
            callback(key, level);
        }
        changes += level != held ? 1 : 0;
        held = level;
    });
    // Repeats that wait may have been merged in one queue only.
    const auto note = [](std::string& events, const KeyEvent& event) {
        events += event.action == KeyAction::Repeated ? "" : event.action == KeyAction::Pressed ? "p" : "r";
    };
    std::string seen[2];
    std::thread poller([&] {
        const int epoll = epoll_create1(EPOLL_CLOEXEC);
        epoll_event ready{EPOLLIN, {}};
        epoll_ctl(epoll, EPOLL_CTL_ADD, polled.descriptor(), &ready);
        while (epoll_wait(epoll, &ready, 1, -1) == 1) {
            const auto event = polled.next(std::chrono::milliseconds(0));
            if (!event) {
                break;
            }
            note(seen[0], *event);
        }
        close(epoll);
    });
    std::thread waiter([&] {
        while (const auto event = awaited.next(std::chrono::milliseconds(-1))) {
            note(seen[1], *event);
        }
    });
    panel->start(false, 0);
    typeUntil([&] { return changes > 50; });
    gone.reset();
    typeUntil([&] { return changes > 100; }); // few enough for queues that nobody empties meanwhile
    panel->stop();
    polled.close();
    awaited.close();
    poller.join();
    waiter.join();
    EXPECT_EQ(seen[0], seen[1]);
    EXPECT_GE(seen[0].size(), 100U);
}

TEST_F(ThreadsTest, TwoPanelsRunAtOnceAndReportItToAnyThread)
{
    panelsim::Board indoorBoard{panelsim::BoardConfig(), [this] { return time.now(); }};
    panelsim::BoardGpioFactory indoorFactory(indoorBoard);
    const panelsim::BoardConfig& wiring = indoorBoard.getConfig();
    IndoorFpImpl impl(indoorFactory, wiring.keyGpioBase, wiring.ledGpioBase, wiring.lcdGpioBase, wiring.keyCount,
                      wiring.ledCount, {}, {});
    ILcdFp& indoor = impl;
    const auto outdoor = makePanel();
    std::atomic<unsigned> calls{0};
    for (IFp* panel : {static_cast<IFp*>(&indoor), static_cast<IFp*>(outdoor.get())}) {
        panel->connectAnyKeyChangedCb([&calls](unsigned, bool) { ++calls; });
        panel->start(false, 0);
    }
    board.press(1); // and held, so that both panels repeat
    indoorBoard.press(2);
    std::atomic<bool> done{false};
    std::thread watcher([&] {
        while (!done) {
            EXPECT_TRUE(indoor.isRunning());
            EXPECT_TRUE(outdoor->isRunning());
        }
    });
    std::thread keysAndLeds([&] {
        for (unsigned round = 0; round < 200; ++round) {
            outdoor->setAllLeds(round % 2 == 0);
            indoorBoard.press(round % 2);
            indoorBoard.release((round + 1) % 2);
        }
        typeUntil([&] { return calls > 100; });
    });
    EXPECT_TRUE(impl.restartDisplay());
    DisplayBuffer page(25, 3);
    for (unsigned round = 0; round < 5; ++round) {
        page.setLineContent(round % 3, u"page " + std::u16string(1, static_cast<char16_t>('0' + round)));
        EXPECT_TRUE(indoor.printBuffer(page));
    }
    keysAndLeds.join();
    done = true;
    watcher.join();
    indoor.stop();
    outdoor->stop();
    EXPECT_EQ(indoorBoard.busFaultCount(), 0U);
    EXPECT_EQ(textOf(indoorBoard.view().lcd->lines.at(1)).substr(0, 6), "page 4");
}

#ifndef NDEBUG
TEST_F(MisuseDeathTest, StoppingOrDestroyingFromTheCallbackIsReported)
{
    using Misuse = void (*)(std::unique_ptr<FpBase>&);
    for (const Misuse misuse :
         {Misuse([](auto& panel) { panel->stop(); }), Misuse([](auto& panel) { panel.reset(); })}) {
        EXPECT_EXIT(
            {
                auto panel = makePanel();
                panel->connectAnyKeyChangedCb([&](unsigned, bool) { misuse(panel); });
                panel->start(false, 0);
                typeUntil([] { return false; });
            },
            testing::KilledBySignal(SIGABRT), "panel stopped or destroyed by its own key callback");
    }
}
#endif
