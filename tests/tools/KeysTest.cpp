#include "tools/Keys.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <string>

namespace {

TEST(KeyEventQueue, DistinguishesPressesFromRepeatsForEachKey)
{
    const std::string reports = "0+0+1+0+0-1+0+0+2-";
    tools::KeyEventQueue queue;
    for (std::size_t i = 0; i < reports.size(); i += 2) {
        queue.push(static_cast<unsigned>(reports[i] - '0'), reports[i + 1] == '+');
    }
    std::string events;
    for (const auto& event : queue.take()) {
        events += tools::describe(event) + " " + std::to_string(event.repeats) + "; ";
    }
    EXPECT_EQ(events, "key 0 pressed 0; key 0 repeated 1; key 1 pressed 0; key 0 repeated 2; key 0 released 0; "
                      "key 1 repeated 1; key 0 pressed 0; key 0 repeated 1; key 2 released 0; ");
    EXPECT_TRUE(queue.take().empty());
}

} // namespace
