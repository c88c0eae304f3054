// Waiting for a frame's time.
#pragma once

#include <cstdint>

namespace oculora {

// Waits until `dueUs` (CLOCK_MONOTONIC microseconds). False when asked to stop.
bool WaitUntilUs(std::int64_t dueUs);

}  // namespace oculora
