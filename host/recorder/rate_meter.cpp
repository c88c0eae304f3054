// How many frames a second a camera really sends.
#include "recorder/rate_meter.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace oculora {
namespace {

constexpr std::int64_t kSettleUs = 1000000;
constexpr std::int64_t kWindowUs = 4000000;

// A stall, a burst or lost frames in one of two windows make them differ by more than this.
bool Agree(double a, double b) { return std::abs(a - b) <= std::max(0.5, 0.05 * std::max(a, b)); }

}  // namespace

double RateMeter::Note(std::int64_t nowUs) {
  if (m_FirstUs == 0) m_FirstUs = nowUs;
  if (m_WindowUs == 0) {
    if (nowUs - m_FirstUs >= kSettleUs) m_WindowUs = nowUs;
    return 0;
  }
  ++m_Frames;
  const std::int64_t passedUs = nowUs - m_WindowUs;
  if (passedUs < kWindowUs) return 0;
  const double rate = m_Frames * 1e6 / static_cast<double>(passedUs);
  const double before = std::exchange(m_LastRate, rate);
  m_WindowUs = nowUs;
  m_Frames = 0;
  return before > 0 && Agree(before, rate) ? (before + rate) / 2 : 0;
}

int WholeRate(double rate, int known) {
  constexpr double kStays = 0.75;
  if (known > 0 && std::abs(rate - known) <= kStays) return known;
  return std::max(1, static_cast<int>(std::lround(rate)));
}

}  // namespace oculora
