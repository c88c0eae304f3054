// How fast a recorded event is played, and which frame comes next.
#include "pacing.h"

#include <algorithm>
#include <limits>

namespace {

constexpr double kSecondUs = 1000000.0;
constexpr int kMaxDelayUs = std::numeric_limits<int>::max();

}  // namespace

int BaseDelayUs(float frameRate) {
  if (!(frameRate > 0)) return kMaxDelayUs;  // no number, too
  return static_cast<int>(std::min(kSecondUs / static_cast<double>(frameRate), static_cast<double>(kMaxDelayUs)));
}

int IntervalUs(float frameRate, int rate) {
  const std::int64_t base = BaseDelayUs(frameRate);
  return static_cast<int>(rate >= 0 ? base : std::min<std::int64_t>(-std::int64_t{rate} * base, kMaxDelayUs));
}

std::int64_t NextFrame(std::int64_t frame, int rate) { return frame + std::max(rate, 1); }
