// Pacing of streaming loops.
#include "velm/timing.h"

#include <ctime>

namespace {

constexpr std::int64_t kMicro = 1000000;

std::int64_t NowUs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * kMicro + now.tv_nsec / 1000;
}

}  // namespace

void DelayTimer::BeginTiming() { m_LastUs = NowUs(); }

void DelayTimer::Delay() {
  const std::int64_t due = m_LastUs + m_PeriodUs;
  if (NowUs() < due) {
    const timespec until{static_cast<time_t>(due / kMicro), static_cast<long>(due % kMicro) * 1000};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
  }
  m_LastUs = NowUs();
}
