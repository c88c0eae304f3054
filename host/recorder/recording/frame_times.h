// Time stamps of a recorded file's frames, from when they arrived.
#pragma once

#include <cstdint>

namespace oculora {

// Begins at 0 and always rises, whatever arrival times do. Frames that came at once (a burst) stand the least step
// apart; after a leap of the clock, back or ahead by more than ten seconds, time goes on at the pace of the frames
// before.
class FrameTimes {
 public:
  // Ticks a second; the least step is a millisecond.
  explicit FrameTimes(std::int32_t timescale) : m_Timescale(timescale) {}

  // The time of the frame that arrived at `arrivedUs`, in ticks.
  std::int64_t Next(std::int64_t arrivedUs);
  // How long the frame given last is going to last, supposedly: as long as the one before it.
  std::int64_t ProbableDuration() const;

 private:
  std::int64_t ProbableUs() const;
  std::int64_t TicksOf(std::int64_t us) const { return us * m_Timescale / 1000000; }

  std::int32_t m_Timescale;
  bool m_Started = false;
  std::int64_t m_OriginUs = 0;   // what counts as time 0
  std::int64_t m_ArrivedUs = 0;  // the frame before
  std::int64_t m_StepUs = 0;     // between the frames before, at their own pace; 0: not known yet
  std::int64_t m_LastUs = 0;     // the time given out last
};

}  // namespace oculora
