// The rate of frames as they arrive.
#include "recorder/rate_meter.h"

#include <gtest/gtest.h>

#include <functional>

using oculora::RateMeter;
using oculora::WholeRate;

namespace {

// The first rate found among `count` frames, frame N arriving at `arrival(N)` seconds; 0 when there was none.
double FirstRate(RateMeter& meter, int count, const std::function<double(int)>& arrival) {
  double rate = 0;
  for (int n = 0; n < count && rate == 0; ++n) rate = meter.Note(1 + static_cast<std::int64_t>(arrival(n) * 1e6));
  return rate;
}

TEST(RateMeterTest, FindsTheRateOfASteadyCameraWhateverElseHappens) {
  const std::pair<int, std::function<double(int)>> cases[] = {
      {30, [](int n) { return n / 29.97; }},                                // NTSC
      {1, [](int n) { return n * 3; }},                                     // one frame in three seconds
      {25, [](int n) { return n / 25.0 + (n * 7919 % 13) * 0.005; }},       // jitter
      {20, [](int n) { return n / 10 / 2.0; }},                             // groups that arrive at once
      {25, [](int n) { return n < 1500 ? n * 1e-5 : (n - 1500) / 25.0; }},  // a burst of a minute's frames first
      {25, [](int n) { return n / 25.0 + (n > 150 ? 10 : 0); }},            // a stall of ten seconds
  };
  for (const auto& [fps, arrival] : cases) {
    RateMeter meter;
    EXPECT_EQ(WholeRate(FirstRate(meter, 3000, arrival), 0), fps);
  }
  RateMeter meter;
  EXPECT_EQ(FirstRate(meter, 170, [](int n) { return n / 25.0; }), 0) << "one window is no proof";
  meter.Reset();
  EXPECT_EQ(FirstRate(meter, 170, [](int n) { return 60 + n / 25.0; }), 0) << "carried over to a new connection";
}

TEST(RateMeterTest, RatesBetweenTwoNumbersDoNotFlutter) {
  const double cases[][3] = {{12.4, 0, 12}, {12.6, 12, 12}, {13.0, 12, 13}};
  for (const auto& [rate, known, whole] : cases) EXPECT_EQ(WholeRate(rate, static_cast<int>(known)), whole) << rate;
}

}  // namespace
