// A-law sound and a tone.
#include "recorder/mxpeg/alaw.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

namespace oculora {
namespace {

constexpr double kLoudness = 0.5 * 32767;

}  // namespace

std::uint8_t AlawFromLinear(std::int16_t sample) {
  const bool positive = sample >= 0;
  const unsigned magnitude = static_cast<unsigned>(positive ? sample : -1 - sample) >> 3;  // 12 bits
  // The lowest two of the eight segments have the same step.
  const int segment = std::max(static_cast<int>(std::bit_width(magnitude)) - 5, 0);
  const unsigned code = static_cast<unsigned>(segment) << 4 | (magnitude >> std::max(segment, 1) & 15);
  return static_cast<std::uint8_t>((code | (positive ? 0x80 : 0)) ^ 0x55);
}

void AlawTone::Fill(std::span<std::uint8_t> samples) {
  for (std::uint8_t& sample : samples) {
    sample = AlawFromLinear(static_cast<std::int16_t>(kLoudness * std::sin(2 * std::numbers::pi * m_Phase)));
    m_Phase += m_Step;
    m_Phase -= std::floor(m_Phase);
  }
}

}  // namespace oculora
