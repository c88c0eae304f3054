// A-law sound, 8000 samples a second, and a tone to fill it with.
#pragma once

#include <cstdint>
#include <span>

namespace oculora {

constexpr int kAlawRate = 8000;

// One sample of 16 bits as an A-law byte.
std::uint8_t AlawFromLinear(std::int16_t sample);

// A sine that goes on where the last call left off.
class AlawTone {
 public:
  // 0 Hz is silence.
  explicit AlawTone(double hertz) : m_Step(hertz / kAlawRate) {}

  // The next samples.
  void Fill(std::span<std::uint8_t> samples);

 private:
  double m_Step;       // turns a sample
  double m_Phase = 0;  // in turns, below 1
};

}  // namespace oculora
