// The clock of rings: CLOCK_MONOTONIC in microseconds, the same in all processes.
#pragma once

#include <ctime>

#include <cstdint>

namespace oculora {

inline std::int64_t MonotonicUs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

}  // namespace oculora
