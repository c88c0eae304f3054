// When the frames of a file are due, also across its loops.
#include "recorder/sources/pacer.h"

namespace oculora {
namespace {

constexpr std::int64_t kSecondUs = 1000000;
constexpr std::int64_t kUsualStepUs = kSecondUs / 25;
constexpr std::int64_t kLongestStepUs = 60 * kSecondUs;  // larger gaps are errors of the file

}  // namespace

std::int64_t Pacer::NextDueUs(std::int64_t nowUs, std::optional<std::int64_t> stampUs, std::int64_t durationUs) {
  const std::int64_t step = StepUs(stampUs);
  if (!m_DueUs) {
    m_DueUs = nowUs;
  } else {
    *m_DueUs += step;
    if (*m_DueUs < nowUs - kSecondUs) m_DueUs = nowUs;
  }
  // Many files name no durations; then a frame is shown as long as the one before.
  m_LastDurationUs = durationUs > 0 ? durationUs : step;
  m_LastStampUs = stampUs;
  return *m_DueUs;
}

std::int64_t Pacer::StepUs(std::optional<std::int64_t> stampUs) const {
  if (m_Fps > 0) return kSecondUs / m_Fps;
  if (stampUs && m_LastStampUs) {
    const std::int64_t step = *stampUs - *m_LastStampUs;
    if (step >= 0 && step <= kLongestStepUs) return step;
  }
  return m_LastDurationUs > 0 && m_LastDurationUs <= kLongestStepUs ? m_LastDurationUs : kUsualStepUs;
}

}  // namespace oculora
