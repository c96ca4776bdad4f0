#include "frontpanelhw/handler/KeyHandler.h"

#include "tests/support/CapturedOutput.h"
#include "tests/support/FakePins.h"
#include "tests/support/VirtualTime.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

using frontpanelhw::handler::GpioVectorCreator;
using frontpanelhw::handler::KeyHandler;
using namespace std::chrono_literals;

namespace {

constexpr unsigned base = 30;

class KeyHandlerTest : public testing::Test {
protected:
    /** With these keys pressed, a bit for each. */
    KeyHandler handlerOf(unsigned keyCount, unsigned pressed = 0)
    {
        press(pressed);
        return KeyHandler(std::make_unique<GpioVectorCreator>(pins, base, keyCount));
    }
    void press(unsigned pressed)
    {
        for (unsigned i = 0; i < 12; ++i) {
            pins.levels.at(base + i) = (pressed >> i & 1U) != 0;
        }
    }
    /** Notes a call as "0+" or "1-". */
    void note(unsigned key, bool level) { events += std::to_string(key) + (level ? "+" : "-"); }
    std::function<void(unsigned, bool)> noting(unsigned offset)
    {
        return [this, offset](unsigned key, bool level) { note(offset + key, level); };
    }
    /** Scans so often with these keys pressed. @return the calls, "." for a scan without one */
    std::string run(KeyHandler& keys, std::initializer_list<std::pair<unsigned, unsigned>> pressedForScans)
    {
        std::string trace;
        for (auto [pressed, scans] : pressedForScans) {
            press(pressed);
            for (; scans > 0; --scans) {
                keys.start(25ms) ? time.awaitSleeper() : time.scan();
                trace += events.empty() ? "." : std::exchange(events, "");
            }
        }
        return trace;
    }

    VirtualTime time{VirtualTime::Others::Wait};
    FakePins pins;
    CapturedOutput log{[this](std::string_view line) {
        if (line == "INFO: KeyHandler stop called\n") {
            time.wake();
        }
    }};
    std::string events; ///< while nobody scans, the polling thread sleeps
};

} // namespace

TEST_F(KeyHandlerTest, ReportsPressReleaseAndRepeatsWithOneCountForAllKeysAndHandlers)
{
    {
        KeyHandler keys = handlerOf(2);
        keys.anyKeyChangedCb = noting(0);
        EXPECT_EQ(run(keys, {{0, 1}, {2, 21}, {0, 2}}), ".1+........1+........1+..1-.");
    }
    {
        KeyHandler keys = handlerOf(1, 1);
        keys.anyKeyChangedCb = noting(0);
        EXPECT_EQ(run(keys, {{1, 11}}), "........0+..") << "held at construction";
        keys.stop();
        EXPECT_EQ(run(keys, {{1, 7}}), "......0+") << "the count goes on";
    }
    KeyHandler keys = handlerOf(3);
    keys.anyKeyChangedCb = noting(0);
    EXPECT_EQ(run(keys, {{3, 13}, {7, 4}}), "0+1+....0+...1+...2+..2+");
    EXPECT_EQ(time.pause(), 25ms);
}

TEST_F(KeyHandlerTest, LeavesOutKeysFromTheFirstThatCannotBeRead)
{
    std::cerr << std::hex;
    pins.broken = {"31?"};
    KeyHandler keys = handlerOf(4);
    EXPECT_EQ(log.take(), "! ERROR: unable to get key gpio value: 31\n");
    keys.anyKeyChangedCb = noting(0);
    EXPECT_EQ(run(keys, {{5, 1}}), "0+");
    keys.stop();
    bool value = false;
    EXPECT_THROW(keys.fireChangeEvent(1, value), Broken);
    EXPECT_THROW(keys.fireChangeEvent(2, value), std::out_of_range);
    EXPECT_TRUE(value);
    EXPECT_THROW(keys.fireChangeEvent(4, value), std::out_of_range);
}

TEST_F(KeyHandlerTest, LogsEachEventThatHasACallbackInTheStreamsNumberBaseAndSurvivesTheCallback)
{
    std::cout << std::hex;
    KeyHandler keys = handlerOf(12);
    run(keys, {{1U << 10, 1}});
    keys.replaceCallback([this](unsigned key, bool level) {
        note(key, level);
        throw std::runtime_error("the application's own");
    });
    EXPECT_EQ(run(keys, {{3U << 10, 1}, {0, 1}}), "11+10-11-");
    keys.stop();
    keys.stop();
    EXPECT_EQ(log.take(), "INFO: key event from: b\nINFO: key event from: a\nINFO: key event from: b\n"
                          "INFO: KeyHandler stop called\n");
}

TEST_F(KeyHandlerTest, InstallsACallbackBetweenEventsAndDestroysTheEarlierOneWithoutALock)
{
    KeyHandler keys = handlerOf(2, 2);
    std::shared_ptr<void> end(nullptr, [&](void*) {
        note(4, false);
        keys.replaceCallback(noting(5));
    });
    keys.replaceCallback([&, held = std::move(end)](unsigned key, bool) {
        keys.replaceCallback(nullptr);
        note(key, held.use_count() == 1); // not yet destroyed
    });
    EXPECT_EQ(run(keys, {{1, 1}}), "0+4-") << "the second key's event in the scan has no callback";
    EXPECT_EQ(run(keys, {{0, 1}}), "5-");
    keys.replaceCallback(noting(7));
    keys.stop();
    keys.anyKeyChangedCb(0, true);
    EXPECT_EQ(events, "7+");
}

TEST_F(KeyHandlerTest, StaysStoppedWhenNoThreadCanBeMade)
{
    pthread_attr_t usual;
    pthread_getattr_default_np(&usual);
    pthread_attr_t huge = usual;
    pthread_attr_setstacksize(&huge, SIZE_MAX / 4 * 3);
    pthread_setattr_default_np(&huge);
    KeyHandler keys = handlerOf(1);
    EXPECT_THROW(keys.start(1ms), std::system_error);
    pthread_setattr_default_np(&usual);
    EXPECT_FALSE(keys.running);
}
