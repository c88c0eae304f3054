// The two clocks of the recorder, in microseconds.
#pragma once

#include <ctime>

#include <cstdint>

namespace oculora {

inline std::int64_t ClockUs(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return std::int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

inline std::int64_t MonotonicUs() { return ClockUs(CLOCK_MONOTONIC); }
inline std::int64_t WallClockUs() { return ClockUs(CLOCK_REALTIME); }

}  // namespace oculora
