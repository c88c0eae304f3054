// Time stamps of a recorded file's frames, from when they arrived.
#include "recorder/recording/frame_times.h"

#include <algorithm>

namespace oculora {
namespace {

constexpr std::int64_t kSecondUs = 1000000;
constexpr std::int64_t kLeastStepUs = 1000;
constexpr std::int64_t kFirstStepUs = 40000;
constexpr std::int64_t kMostAheadUs = 10 * kSecondUs;
constexpr std::int64_t kMostProbableUs = kSecondUs;

}  // namespace

std::int64_t FrameTimes::Next(std::int64_t arrivedUs) {
  if (!m_Started) {
    m_Started = true;
    m_OriginUs = arrivedUs;
    m_ArrivedUs = arrivedUs;
    return 0;
  }
  const std::int64_t step = arrivedUs - m_ArrivedUs;
  m_ArrivedUs = arrivedUs;
  if (step < 0 || step > kMostAheadUs) {
    m_OriginUs = arrivedUs - m_LastUs - ProbableUs();
  } else if (step > 0) {
    m_StepUs = step;
  }
  m_LastUs = std::max(arrivedUs - m_OriginUs, m_LastUs + kLeastStepUs);
  return TicksOf(m_LastUs);
}

std::int64_t FrameTimes::ProbableDuration() const { return TicksOf(ProbableUs()); }

std::int64_t FrameTimes::ProbableUs() const {
  return m_StepUs == 0 ? kFirstStepUs : std::clamp(m_StepUs, kLeastStepUs, kMostProbableUs);
}

}  // namespace oculora
