#include "tools/KeyTracker.h"

#include <gtest/gtest.h>

namespace {

TEST(KeyTracker, TellsPressesFromRepeatsForEachKey)
{
    struct Step {
        unsigned key;
        bool pressed;
        const char* text;
        unsigned repeats;
    };
    tools::KeyTracker tracker;
    for (const Step& step :
         {Step{0, true, "key 0 pressed", 0}, Step{0, true, "key 0 repeated", 1}, Step{1, true, "key 1 pressed", 0},
          Step{0, true, "key 0 repeated", 2}, Step{0, false, "key 0 released", 0}, Step{1, true, "key 1 repeated", 1},
          Step{0, true, "key 0 pressed", 0}, Step{0, true, "key 0 repeated", 1},
          Step{17, false, "key 17 released", 0}}) {
        const tools::KeyEvent event = tracker.track(step.key, step.pressed);
        EXPECT_EQ(tools::describe(event), step.text);
        EXPECT_EQ(event.repeats, step.repeats) << step.text;
    }
}

} // namespace
