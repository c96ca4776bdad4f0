#include "frontpanelhw/fp/FpBase.h"

#include "tests/support/CapturedOutput.h"
#include "tests/support/FakePins.h"
#include "tests/support/RecordedWaits.h"

#include <gtest/gtest.h>

using frontpanelhw::fp::FpBase;

TEST(FpBase, MakesLedsThenKeysAndReleasesKeysThenLeds)
{
    FakePins pins;
    EXPECT_FALSE(FpBase(pins, 30, 1, 20, 2, {0}, {1}).isRunning());
    EXPECT_EQ(pins.take(), "create export 20 create export 21 init 20 inverted out 0 init 21 out 1 "
                           "create export 30 init 30 in 0 30? delete 30 delete 20 delete 21");
}

TEST(FpBase, RemembersLedsWhileAllAreForcedOn)
{
    FakePins pins;
    FpBase panel(pins, 30, 0, 20, 4, {}, {1});
    pins.take();
    EXPECT_FALSE(panel.setLed(4, true));
    EXPECT_TRUE(panel.setLed(0, true));
    panel.setAllLeds(true);
    EXPECT_TRUE(panel.setLed(2, true) && panel.setLed(0, false));
    panel.setAllLeds(false);
    EXPECT_EQ(pins.take(), "20=1 20=1 21=1 22=1 23=1 20=0 21=1 22=1 23=0");
    panel.setAllLeds(true);
    panel.stop();
    EXPECT_TRUE(panel.setLed(3, true));
    panel.setAllLeds(false);
    EXPECT_EQ(pins.take(), "20=1 21=1 22=1 23=1 20=0 21=0 22=0 23=0 23=1 20=0 21=0 22=0 23=1");
    pins.broken = {"21=1"};
    EXPECT_THROW(panel.setAllLeds(true), Broken);
    EXPECT_TRUE(panel.setLed(2, true)) << "all-on mode holds";
    EXPECT_EQ(pins.take(), "20=1 21=1");
}

TEST(FpBase, TestsTheLampsBeforePollingStarts)
{
    FakePins pins;
    FpBase panel(pins, 30, 1, 20, 2, {}, {1});
    pins.take();
    CapturedOutput log;
    pins.refused = {"2s"};
    RecordedWaits waits([&](const std::string& wait) { return pins.happen(wait); });
    EXPECT_TRUE(panel.start(true, 2) && panel.isRunning());
    EXPECT_EQ(pins.take().rfind("20=1 21=1 2s 1s 20=0 21=1", 0), 0U) << "the wait was interrupted halfway";
    EXPECT_FALSE(panel.start(true, 0));
    panel.stop();
    panel.stop();
    EXPECT_FALSE(panel.isRunning());
    EXPECT_EQ(log.take(), "INFO: KeyHandler stop called\n");
}
