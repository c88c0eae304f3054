// Waiting for a frame's time.
#include "recorder/sources/wait.h"

#include <algorithm>
#include <ctime>

#include "recorder/clock.h"
#include "recorder/stop_signal.h"

namespace oculora {

bool WaitUntilUs(std::int64_t dueUs) {
  // In slices, so that a stop is noticed and a slow pace is not taken for a hang.
  for (std::int64_t left = dueUs - MonotonicUs(); left > 0; left = dueUs - MonotonicUs()) {
    if (StopRequested()) return false;
    KickWatchdog();
    const std::int64_t slice = std::min<std::int64_t>(left, 500000);
    const timespec time = {0, static_cast<long>(slice * 1000)};
    nanosleep(&time, nullptr);
  }
  return !StopRequested();
}

}  // namespace oculora
