#include "frontpanelhw/handler/KeyEventQueue.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <string>

using namespace frontpanelhw::handler;
using namespace std::chrono_literals;

class KeyEventQueueTest : public testing::Test {
protected:
    /** Reports keys: "0+" that key 0 is pressed, "0-" that it is released. */
    void report(const std::string& keys)
    {
        for (std::size_t i = 0; i < keys.size(); i += 2) {
            callback(static_cast<unsigned>(keys[i] - '0'), keys[i + 1] == '+');
        }
    }

    /** @return what is there to read, such as "0p0 " for a press of key 0 and its repeats, "end" when closed */
    std::string taken()
    {
        std::string events;
        for (pollfd readable{queue->descriptor(), POLLIN, 0}; poll(&readable, 1, 0) == 1;) {
            const auto event = queue->next(0ms);
            if (!event) {
                return events + "end";
            }
            events += std::to_string(event->key) + "p+r"[static_cast<int>(event->action)] +
                      std::to_string(event->repeats) + " ";
        }
        return events;
    }

    std::unique_ptr<KeyEventQueue> queue = std::make_unique<KeyEventQueue>();
    std::function<void(unsigned, bool)> callback = queue->callback();
};

TEST_F(KeyEventQueueTest, TellsPressesRepeatsAndReleasesAndMergesRepeatsThatWait)
{
    report("2-0+0+1+0+0-1+1-0+");
    EXPECT_EQ(taken(), "2r0 0p0 1p0 0+2 0r2 1+1 1r1 0p0 ");
    report("0+");
    EXPECT_EQ(taken(), "0+1 ") << "counted since the press that was taken";
}

TEST_F(KeyEventQueueTest, DropsTheOldestPressWithItsReleaseWhenFull)
{
    report("9+");
    queue->next(0ms);
    report("9-8+0+0+1+0-");
    for (unsigned i = 6; i < 256; ++i) {
        report(i % 2 == 0 ? "7+" : "7-");
    }
    report("1+");
    EXPECT_EQ(queue->dropped(), 3U) << "press, repeat and release of key 0";
    EXPECT_EQ(taken().substr(0, 24), "9r0 8p0 1p0 7p0 7r0 7p0 ");
}

TEST_F(KeyEventQueueTest, WaitsWithoutBeingBusyUntilClosed)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(queue->next(0ms) || queue->next(50ms));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);
    report("0+");
    queue->close();
    report("0-");
    EXPECT_EQ(taken(), "0p0 end");
    EXPECT_FALSE(queue->next(std::chrono::milliseconds::min()) || queue->next(std::chrono::milliseconds::max()));

    const int descriptor = queue->descriptor();
    EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
    queue.reset();
    report("0+");
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}
