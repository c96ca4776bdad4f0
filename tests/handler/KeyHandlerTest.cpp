#include "frontpanelhw/handler/KeyHandler.h"

#include "tests/support/CapturedOutput.h"
#include "tests/support/FakePins.h"
#include "tests/support/KeyEvents.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <dlfcn.h>
#include <functional>
#include <memory>
#include <pthread.h>
#include <regex>
#include <stdexcept>
#include <system_error>
#include <utility>

using frontpanelhw::handler::GpioVectorCreator;
using frontpanelhw::handler::KeyHandler;
using namespace std::chrono_literals;

namespace {

std::atomic<bool> noMoreThreads{false};

} // namespace

// Stands before the C library's in the lookup of every library of this process.
extern "C" __attribute__((visibility("default"))) int
pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument)
{
    static const auto real = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return noMoreThreads ? EAGAIN : real(thread, attributes, start, argument);
}

namespace {

constexpr unsigned base = 30;

class KeyHandlerTest : public testing::Test {
protected:
    /** The whole process has one count of held polls; a press resets it. */
    KeyHandlerTest()
    {
        KeyHandler key = handlerOf(1);
        pins.levels[base] = true;
        EXPECT_EQ(poll(key, 1, 1), "0+");
        pins.levels[base] = false;
    }
    KeyHandler handlerOf(unsigned keyCount)
    {
        return KeyHandler(std::make_unique<GpioVectorCreator>(pins, base, keyCount));
    }
    /** Polls as the polling thread does. @return "0+" and "1-" for events, "!" for a throw, "." for a quiet poll */
    static std::string poll(KeyHandler& keys, unsigned keyCount, unsigned polls)
    {
        std::string trace;
        for (unsigned i = 0; i < polls; ++i) {
            std::string events;
            for (unsigned key = 0; key < keyCount; ++key) {
                try {
                    bool value = false;
                    events += keys.fireChangeEvent(key, value) ? std::to_string(key) + (value ? "+" : "-") : "";
                } catch (const std::exception&) {
                    events += "!";
                }
            }
            trace += events.empty() ? "." : events;
        }
        return trace;
    }

    FakePins pins;
    CapturedOutput log;
    KeyEvents events;
};

} // namespace

TEST_F(KeyHandlerTest, ReportsPressReleaseAndRepeats)
{
    KeyHandler keys = handlerOf(2);
    std::string trace = poll(keys, 2, 1);
    pins.levels[base + 1] = true;
    trace += poll(keys, 2, 21);
    pins.levels[base + 1] = false;
    EXPECT_EQ(trace + poll(keys, 2, 2), ".1+........1+........1+..1-.");
}

TEST_F(KeyHandlerTest, RepeatsAKeyHeldAtConstructionWithoutAPress)
{
    pins.levels[base] = true;
    KeyHandler keys = handlerOf(1);
    EXPECT_EQ(poll(keys, 1, 9), "........0+");
}

TEST_F(KeyHandlerTest, SharesTheRepeatCountAmongKeys)
{
    KeyHandler keys = handlerOf(3);
    pins.levels[base] = pins.levels[base + 1] = true;
    const std::string trace = poll(keys, 3, 13);
    pins.levels[base + 2] = true;
    EXPECT_EQ(trace + poll(keys, 3, 4), "0+1+....0+...1+...2+..2+");
}

TEST_F(KeyHandlerTest, LeavesOutKeysFromTheFirstThatCannotBeRead)
{
    std::cerr << std::hex;
    pins.broken = {"31?"};
    KeyHandler keys = handlerOf(4);
    EXPECT_EQ(log.take(), "! ERROR: unable to get key gpio value: 31\n");
    pins.levels[base] = pins.levels[base + 2] = true;
    EXPECT_EQ(poll(keys, 4, 1), "0+!!!");
    bool value = false;
    EXPECT_THROW(keys.fireChangeEvent(2, value), std::out_of_range);
    EXPECT_TRUE(value);
    EXPECT_THROW(keys.fireChangeEvent(4, value), std::out_of_range);
}

TEST_F(KeyHandlerTest, LogsEachEventInTheStreamsNumberBaseAndSurvivesTheCallback)
{
    std::cout << std::hex;
    KeyHandler keys = handlerOf(12);
    keys.anyKeyChangedCb = [this](unsigned key, bool level) {
        events.add(key, level);
        throw std::runtime_error("the application's own");
    };
    EXPECT_TRUE(keys.start(1ms));
    EXPECT_FALSE(keys.start(1ms));
    pins.levels[base + 11] = true;
    EXPECT_TRUE(events.waitFor("11+"));
    pins.levels[base + 11] = false;
    EXPECT_TRUE(events.waitFor("11-"));
    keys.stop();
    keys.stop();
    const std::string text = log.take();
    const std::regex lines("(INFO: key event from: b\n){2,}INFO: KeyHandler stop called\n");
    EXPECT_TRUE(std::regex_match(text, lines)) << text;
}

TEST_F(KeyHandlerTest, InstallsACallbackBetweenEventsAndDestroysTheEarlierOneWithoutALock)
{
    pins.levels[base + 1] = true;
    KeyHandler keys = handlerOf(2);
    const auto record = [this](unsigned event) {
        return [this, event](unsigned, bool level) { events.add(event, level); };
    };
    std::shared_ptr<void> end(nullptr, [&](void*) {
        events.add(4, false);
        keys.replaceCallback(record(5));
    });
    keys.replaceCallback([&, held = std::move(end)](unsigned key, bool) {
        keys.replaceCallback(nullptr);
        events.add(key, held.use_count() == 1); // not yet destroyed
    });
    pins.levels[base] = true;
    pins.levels[base + 1] = false;
    keys.start(1ms);
    EXPECT_TRUE(events.waitFor("0+4-")) << "the second key's event in the first scan has no callback";
    pins.levels[base] = false;
    EXPECT_TRUE(events.waitFor("0+4-5-"));
    keys.replaceCallback(record(7));
    keys.stop();
    keys.anyKeyChangedCb(0, true);
    EXPECT_TRUE(events.waitFor("7+"));
}

TEST_F(KeyHandlerTest, StaysStoppedWhenNoThreadCanBeMade)
{
    KeyHandler keys = handlerOf(1);
    noMoreThreads = true;
    EXPECT_THROW(keys.start(1ms), std::system_error);
    noMoreThreads = false;
    EXPECT_FALSE(keys.running);
}
