// The rate of frames as they arrive.
#include "recorder/rate_meter.h"

#include <gtest/gtest.h>

#include <functional>

using oculora::RateMeter;
using oculora::WholeRate;

namespace {

constexpr double kSecond = 1e6;

// The first rate found among `count` frames, frame N arriving at `arrival(N)`; 0 when there was none.
double FirstRate(RateMeter& meter, int count, const std::function<double(int)>& arrival) {
  for (int n = 0; n < count; ++n) {
    const double rate = meter.Note(1 + static_cast<std::int64_t>(arrival(n)));
    if (rate > 0) return rate;
  }
  return 0;
}

TEST(RateMeterTest, FindsTheRateOfASteadyCameraWhateverElseHappens) {
  const auto steady = [](double fps) { return [=](int n) { return n * kSecond / fps; }; };
  const struct {
    const char* name;
    int fps;
    std::function<double(int)> arrival;
  } cases[] = {
      {"NTSC", 30, steady(29.97)},
      {"fast", 60, steady(60)},
      {"one frame in three seconds", 1, steady(1.0 / 3)},
      {"jitter", 25, [](int n) { return n * kSecond / 25 + (n * 7919 % 13) * 5000.0; }},
      {"groups that arrive at once", 20, [](int n) { return n / 10 * kSecond / 2; }},
      {"a burst of a minute's frames first", 25, [](int n) { return n < 1500 ? n * 10.0 : (n - 1500) * kSecond / 25; }},
      {"a stall of ten seconds", 25, [](int n) { return n * kSecond / 25 + (n > 150 ? 10 * kSecond : 0); }},
  };
  for (const auto& c : cases) {
    RateMeter meter;
    EXPECT_EQ(WholeRate(FirstRate(meter, 3000, c.arrival), 0), c.fps) << c.name;
  }
}

TEST(RateMeterTest, NothingIsCarriedOverToANewConnection) {
  RateMeter meter;
  EXPECT_EQ(FirstRate(meter, 170, [](int n) { return n * kSecond / 25; }), 0) << "one window is no proof";
  meter.Reset();
  EXPECT_EQ(FirstRate(meter, 170, [](int n) { return 60 * kSecond + n * kSecond / 25; }), 0);
}

TEST(RateMeterTest, RatesBetweenTwoNumbersDoNotFlutter) {
  EXPECT_EQ(WholeRate(12.4, 0), 12);
  EXPECT_EQ(WholeRate(12.6, 12), 12);
  EXPECT_EQ(WholeRate(12.4, 13), 13);
  EXPECT_EQ(WholeRate(13.0, 12), 13);
}

}  // namespace
