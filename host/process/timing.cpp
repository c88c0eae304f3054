// Pacing of streaming loops.
#include "velm/timing.h"

#include <algorithm>
#include <ctime>

#include "shm/frame_signal.h"

namespace {

constexpr std::int64_t kMicro = 1000000;

// A loop that reads a ring has nothing to do before the next frame, but its client, its camera and its live stamp want
// a look now and then.
constexpr std::int64_t kLongestIdleUs = 100000;

// How late a loop may be and still catch up: longer than a busy machine keeps a process waiting, short for a viewer.
constexpr std::int64_t kMostLateUs = kMicro;

// Loops of the same period keep to the same beat: the server then hears of what several of them sent at once, which
// costs less than hearing of one after the other. Only where nobody sees that the first wait is shorter.
constexpr std::int64_t kLongestBeatUs = 100000;

std::int64_t NowUs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * kMicro + now.tv_nsec / 1000;
}

void SleepUntil(std::int64_t due) {
  const timespec until{static_cast<time_t>(due / kMicro), static_cast<long>(due % kMicro) * 1000};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
}

}  // namespace

void DelayTimer::BeginTiming() {
  m_LastUs = NowUs();
  if (m_PeriodUs > 0 && m_PeriodUs <= kLongestBeatUs) m_LastUs -= m_LastUs % m_PeriodUs;
}

void DelayTimer::Delay() {
  const std::int64_t due = m_LastUs + m_PeriodUs;
  const auto waited = oculora::WaitForFrame(std::max(m_PeriodUs, kLongestIdleUs));
  if (waited != oculora::FrameWait::kSignal && NowUs() < due) SleepUntil(due);
  const std::int64_t now = NowUs();
  // What sleeping and waking take is made up for by the next wait, or a recording of an hour would take minutes more.
  const bool keepsUp = waited == oculora::FrameWait::kNoRing && now >= due && now - due <= kMostLateUs;
  m_LastUs = keepsUp ? due : now;
}
