#include "frontpanelhw/handler/KeyHandler.h"

#include "tests/support/CapturedOutput.h"
#include "tests/support/FakePins.h"
#include "tests/support/KeyEvents.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <dlfcn.h>
#include <future>
#include <pthread.h>
#include <stdexcept>
#include <system_error>
#include <thread>

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

std::unique_ptr<KeyHandler> keysOn(const FakePins& pins, unsigned count)
{
    return std::make_unique<KeyHandler>(std::make_unique<GpioVectorCreator>(pins, base, count));
}

/** Scans all keys once, as the polling thread does. @return events as "0+ 1-", "!" for a key that threw */
std::string scan(KeyHandler& keys, unsigned count)
{
    std::string events;
    for (unsigned i = 0; i < count; ++i) {
        try {
            bool value = false;
            if (keys.fireChangeEvent(i, value)) {
                events += std::to_string(i) + (value ? "+" : "-");
            }
        } catch (const std::exception&) {
            events += "!";
        }
    }
    return events;
}

/** The count of held polls is the process's own; a press and a release start it anew. */
void restartRepeatCount()
{
    FakePins pins;
    const auto keys = keysOn(pins, 1);
    pins.setLevel(base, true);
    scan(*keys, 1);
}

} // namespace

TEST(KeyHandler, ConfiguresAndReadsTheKeysOnce)
{
    const FakePins pins;
    keysOn(pins, 2);
    EXPECT_EQ(pins.take(), "create export 30 create export 31 init 30 in 0 init 31 in 0 30? 31? delete 30 delete 31");
}

TEST(KeyHandler, TellsPressReleaseAndRepeats)
{
    restartRepeatCount();
    FakePins pins;
    const auto keys = keysOn(pins, 2);
    EXPECT_EQ(scan(*keys, 2), "");
    pins.setLevel(base + 1, true);
    EXPECT_EQ(scan(*keys, 2), "1+");
    std::string held;
    for (int poll = 1; poll <= 20; ++poll) {
        held += scan(*keys, 2) + (poll % 9 == 0 ? "," : "");
    }
    EXPECT_EQ(held, "1+,1+,");
    pins.setLevel(base + 1, false);
    EXPECT_EQ(scan(*keys, 2), "1-");
    EXPECT_EQ(scan(*keys, 2), "");
}

TEST(KeyHandler, RepeatsAKeyHeldAtConstructionWithoutAPress)
{
    restartRepeatCount();
    FakePins pins;
    pins.setLevel(base, true);
    const auto keys = keysOn(pins, 1);
    for (int poll = 1; poll <= 8; ++poll) {
        EXPECT_EQ(scan(*keys, 1), "") << poll;
    }
    EXPECT_EQ(scan(*keys, 1), "0+");
}

TEST(KeyHandler, SharesTheRepeatCountAmongKeys)
{
    restartRepeatCount();
    FakePins pins;
    const auto keys = keysOn(pins, 3);
    pins.setLevel(base, true);
    pins.setLevel(base + 1, true);
    EXPECT_EQ(scan(*keys, 3), "0+1+");
    std::string held;
    for (int poll = 1; poll <= 9; ++poll) {
        held += scan(*keys, 3) + ",";
    }
    EXPECT_EQ(held, ",,,,0+,,,,1+,");
    for (int poll = 1; poll <= 3; ++poll) {
        EXPECT_EQ(scan(*keys, 3), "");
    }
    pins.setLevel(base + 2, true);
    EXPECT_EQ(scan(*keys, 3), "2+");
    EXPECT_EQ(scan(*keys, 3) + scan(*keys, 3), "");
    EXPECT_EQ(scan(*keys, 3), "2+");
}

TEST(KeyHandler, LeavesOutKeysFromTheFirstThatCannotBeRead)
{
    restartRepeatCount();
    FakePins pins;
    pins.breakOn("31?");
    const CapturedOutput output;
    const auto keys = keysOn(pins, 4);
    EXPECT_EQ(output.err(), "ERROR: unable to get key gpio value: 31\n");
    for (unsigned i = 0; i < 4; ++i) {
        pins.setLevel(base + i, true);
    }
    EXPECT_EQ(scan(*keys, 4), "0+!!!");
    bool value = false;
    EXPECT_THROW(keys->fireChangeEvent(2, value), std::out_of_range);
    EXPECT_TRUE(value);
    EXPECT_THROW(keys->fireChangeEvent(4, value), std::out_of_range);
}

TEST(KeyHandler, LogsEachEventInTheStreamsNumberBaseAndSurvivesTheCallback)
{
    restartRepeatCount();
    FakePins pins;
    const CapturedOutput output;
    std::cout << std::hex;
    const auto keys = keysOn(pins, 12);
    KeyEvents events;
    keys->anyKeyChangedCb = [&events](unsigned index, bool value) {
        events.add(index, value);
        throw std::runtime_error("the application's own");
    };
    EXPECT_TRUE(keys->start(1ms));
    EXPECT_FALSE(keys->start(1ms));
    pins.setLevel(base + 11, true);
    EXPECT_TRUE(events.waitFor("11+"));
    pins.setLevel(base + 11, false);
    EXPECT_TRUE(events.waitFor("11-"));
    keys->stop();
    keys->stop();
    EXPECT_FALSE(keys->running);
    const std::string out = output.out();
    EXPECT_EQ(out.rfind("INFO: key event from: b\nINFO: key event from: b\n", 0), 0U) << out;
    const std::string last = "INFO: KeyHandler stop called\n";
    EXPECT_EQ(out.find(last), out.size() - last.size()) << out;
    EXPECT_EQ(output.err(), "");
}

TEST(KeyHandler, ReplacesTheCallbackWhileItRunsWithoutWaitingForIt)
{
    FakePins pins;
    const CapturedOutput output;
    const auto keys = keysOn(pins, 1);
    std::promise<void> entered;
    std::promise<void> leave;
    keys->anyKeyChangedCb = [&, left = leave.get_future().share()](unsigned, bool) {
        entered.set_value();
        left.wait();
    };
    keys->start(0ms);
    pins.setLevel(base, true);
    entered.get_future().wait();
    KeyEvents events;
    keys->anyKeyChangedCb = [&events](unsigned index, bool value) { events.add(index, value); };
    leave.set_value();
    EXPECT_TRUE(events.waitFor("0+"));
    keys->anyKeyChangedCb = nullptr;
    EXPECT_FALSE(keys->anyKeyChangedCb);
    keys->stop();
}

TEST(KeyHandler, StaysStoppedWhenNoThreadCanBeMade)
{
    const FakePins pins;
    const auto keys = keysOn(pins, 1);
    noMoreThreads = true;
    EXPECT_THROW(keys->start(1ms), std::system_error);
    noMoreThreads = false;
    EXPECT_FALSE(keys->running);
}

TEST(KeyHandler, TwoHandlersPollAtOnce)
{
    FakePins pins;
    const CapturedOutput output;
    const auto first = keysOn(pins, 2);
    const auto second = keysOn(pins, 2);
    std::atomic<unsigned> events{0};
    for (const auto* keys : {&first, &second}) {
        (*keys)->anyKeyChangedCb = [&events](unsigned, bool) { ++events; };
        (*keys)->start(0ms);
    }
    pins.setLevel(base, true);
    while (events < 100) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(first->running && second->running);
    first->stop();
    second->stop();
}
