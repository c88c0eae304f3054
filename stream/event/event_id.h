// Ids of events as requests carry them.
#pragma once

#include <cstdint>
#include <string>

struct EventIdParts {
  bool hasCamera;  // a camera was named before the event
  std::int32_t camId;
  std::int32_t eventId;
};

// Splits "5" or "3:5" (camera, event). Text that is no number counts as 0, numbers too large as the largest.
EventIdParts SplitEventId(const std::string& text);
// Decimal text as a 32-bit number, read as far as it is one; clamped.
std::int32_t ReadInt32(const std::string& text);
