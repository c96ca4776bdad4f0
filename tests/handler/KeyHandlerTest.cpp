#include "frontpanelhw/handler/KeyHandler.h"

#include "tests/support/CapturedOutput.h"
#include "tests/support/FakePins.h"
#include "tests/support/VirtualTime.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

using namespace frontpanelhw::handler;
using namespace std::chrono_literals;

constexpr unsigned base = 30;

/** The keys that the bits of a digit stand for. */
constexpr unsigned keyOfBit[] = {0, 1, 2, 10};

class KeyHandlerTest : public testing::Test {
protected:
    /** While the keys of a digit are pressed. */
    KeyHandler handlerOf(unsigned keyCount, char pressed = '0')
    {
        press(pressed);
        return KeyHandler(std::make_unique<GpioVectorCreator>(pins, base, keyCount));
    }
    void press(char pressed)
    {
        for (unsigned bit = 0; bit < 4; ++bit) {
            pins.levels.at(base + keyOfBit[bit]) = (static_cast<unsigned>(pressed - '0') >> bit & 1U) != 0;
        }
    }
    /** @return a callback that notes a call as "0+" or "1-" */
    std::function<void(unsigned, bool)> noting(unsigned offset = 0)
    {
        return [=](unsigned key, bool level) { events += std::to_string(offset + key) + (level ? "+" : "-"); };
    }
    /** Scans with the keys of each digit pressed, and stops at "|". @return the calls, "." for a scan without one */
    std::string run(KeyHandler& keys, const std::string& scans)
    {
        std::string trace;
        for (const char pressed : scans) {
            if (pressed == '|') {
                keys.stop();
                continue;
            }
            press(pressed);
            keys.start(1ms) ? time.awaitSleeper() : time.scan();
            trace += events.empty() ? "." : std::exchange(events, "");
        }
        return trace;
    }

    VirtualTime time;
    FakePins pins;
    CapturedOutput log{&time};
    std::string events; ///< while nobody scans, the polling thread sleeps
};

TEST_F(KeyHandlerTest, ReportsPressReleaseAndRepeatsWithOneCountForAllKeysAndHandlers)
{
    const struct {
        unsigned keyCount;
        char atConstruction;
        std::string scans, calls;
    } rows[] = {{2, '0', "022222222222222222222200", ".1+........1+........1+..1-."},
                {1, '1', "11111111111|1111111", "........0+........0+"},
                {3, '0', "33333333333337777", "0+1+....0+...1+...2+..2+"}};
    for (const auto& row : rows) {
        KeyHandler keys = handlerOf(row.keyCount, row.atConstruction);
        keys.anyKeyChangedCb = noting();
        EXPECT_EQ(run(keys, row.scans), row.calls);
    }
    EXPECT_EQ(time.pause(), 1ms);
}

TEST_F(KeyHandlerTest, LeavesOutKeysFromTheFirstThatCannotBeRead)
{
    std::cerr << std::hex;
    pins.broken = {"31?"};
    KeyHandler keys = handlerOf(4);
    EXPECT_EQ(log.take(), "! ERROR: unable to get key gpio value: 31\n");
    keys.anyKeyChangedCb = noting();
    EXPECT_EQ(run(keys, "5|"), "0+");
}

TEST_F(KeyHandlerTest, LogsEachEventThatHasACallbackInTheStreamsNumberBaseAndSurvivesTheCallback)
{
    std::cout << std::hex;
    KeyHandler keys = handlerOf(11);
    run(keys, "8");
    keys.replaceCallback([note = noting()](unsigned key, bool level) {
        note(key, level);
        throw std::runtime_error("the application's own");
    });
    EXPECT_EQ(run(keys, "40||"), "2+10-2-");
    EXPECT_EQ(log.take(), "INFO: key event from: 2\nINFO: key event from: a\nINFO: key event from: 2\n"
                          "INFO: KeyHandler stop called\n");
}

TEST_F(KeyHandlerTest, InstallsACallbackBetweenEventsAndDestroysTheEarlierOneWithoutALock)
{
    KeyHandler keys = handlerOf(2, '2');
    std::shared_ptr<void> end(nullptr, [&](void*) {
        events += "destroyed";
        keys.replaceCallback(noting(5));
    });
    keys.replaceCallback([&, held = std::move(end)](unsigned, bool) {
        keys.replaceCallback(nullptr);
        events += held.use_count() == 1 ? "alive " : "";
    });
    EXPECT_EQ(run(keys, "1"), "alive destroyed") << "the second key's event in the scan has no callback";
    EXPECT_EQ(run(keys, "0"), "5-");
}
