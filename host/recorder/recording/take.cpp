// A take: one event that is being recorded into its file.
#include "recorder/recording/take.h"

#include <utility>

namespace oculora {
namespace {

// A file never spans a longer gap. Frames that went back in time mean that the clock was set.
constexpr std::int64_t kLongestGapUs = 10000000;
constexpr std::int64_t kClockWasSetUs = -1000000;

}  // namespace

Take::Take(EventRecord event, std::unique_ptr<FileWriter> writer)
    : m_Event(std::move(event)), m_Writer(std::move(writer)), m_LastUs(m_Event.startUs) {}

bool Take::Leaps(const FeedFrame& frame) {
  const std::int64_t stepUs = frame.timestampUs - m_LastUs;
  return stepUs > kLongestGapUs || stepUs < kClockWasSetUs;
}

Take::Offered Take::Offer(const FeedFrame& frame, Bytes extra) {
  if (Leaps(frame)) return Offered::kEnds;
  const bool mayEnd = frame.key || m_Event.cause != EventCause::kContinuous;
  const std::int64_t lengthUs = m_LengthUs + frame.timestampUs - m_LastUs;
  if (mayEnd && m_Event.wantedUs > 0 && lengthUs >= m_Event.wantedUs) return Offered::kLongEnough;
  return Write(frame, extra);
}

Take::Offered Take::Write(const FeedFrame& frame, Bytes extra) {
  m_LengthUs += frame.timestampUs - m_LastUs;
  m_LastUs = frame.timestampUs;
  m_NeedsKey = (m_NeedsKey || frame.lost > 0) && !frame.key;
  if (m_NeedsKey) return Offered::kGoesOn;
  switch (m_Writer->Write(frame, extra)) {
    case FileWrite::kNewFile:
      return Offered::kEnds;
    case FileWrite::kFailed:
      return Offered::kFailed;
    default:
      return Offered::kGoesOn;
  }
}

}  // namespace oculora
