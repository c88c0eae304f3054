// Back-off and the pace of files.
#include <gtest/gtest.h>

#include <vector>

#include "recorder/backoff.h"
#include "recorder/sources/pacer.h"

namespace oculora {
namespace {

TEST(Backoff, DoublesToItsCapAndStartsOverAfterAGoodRun) {
  Backoff backoff(500, 5000, 30000);
  const std::vector<std::pair<long long, int>> steps = {
      // ran, next delay
      {0, 500}, {10, 1000}, {0, 2000}, {29999, 4000}, {0, 5000}, {0, 5000}, {30000, 500}, {0, 1000}};
  for (const auto& [ran, delay] : steps) EXPECT_EQ(backoff.NextDelayMs(ran), delay);
  backoff.Reset();
  EXPECT_EQ(backoff.NextDelayMs(0), 500);
}

TEST(Pacer, FollowsTheStampsAndGoesOnAcrossTheLoop) {
  Pacer pacer(0);
  EXPECT_EQ(pacer.NextDueUs(1000000, 500, 0), 1000000);  // the first at once, wherever the file begins
  EXPECT_EQ(pacer.NextDueUs(1000000, 40500, 0), 1040000);
  EXPECT_EQ(pacer.NextDueUs(1050000, 140500, 0), 1140000);
  pacer.NextLoop();  // the last frame is shown as long as the one before
  EXPECT_EQ(pacer.NextDueUs(1200000, 500, 0), 1240000);
  EXPECT_EQ(pacer.NextDueUs(1200000, 40500, 0), 1280000);
}

TEST(Pacer, BridgesMissingAndBrokenStamps) {
  Pacer pacer(0);
  EXPECT_EQ(pacer.NextDueUs(0, std::nullopt, 20000), 0);
  EXPECT_EQ(pacer.NextDueUs(0, std::nullopt, 20000), 20000);
  EXPECT_EQ(pacer.NextDueUs(0, 5000000, 20000), 40000);
  EXPECT_EQ(pacer.NextDueUs(0, 4000000, 20000), 60000);       // backwards
  EXPECT_EQ(pacer.NextDueUs(0, 900000000000, 20000), 80000);  // a jump of days
}

TEST(Pacer, RateOverridesStampsAndLateFramesAreNotCaughtUpWith) {
  Pacer pacer(10);
  EXPECT_EQ(pacer.NextDueUs(0, 0, 0), 0);
  EXPECT_EQ(pacer.NextDueUs(0, 7000, 0), 100000);
  EXPECT_EQ(pacer.NextDueUs(900000, 14000, 0), 200000);      // late, but within the second
  EXPECT_EQ(pacer.NextDueUs(60000000, 21000, 0), 60000000);  // the machine slept
  EXPECT_EQ(pacer.NextDueUs(60000000, 28000, 0), 60100000);
}

}  // namespace
}  // namespace oculora
