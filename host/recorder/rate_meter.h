// How many frames a second a camera really sends.
#pragma once

#include <cstdint>

namespace oculora {

// Measures by arrival: that is the pace at which readers of the ring get the frames, whatever a camera's own time
// stamps say. Times are CLOCK_MONOTONIC microseconds.
class RateMeter {
 public:
  // A new connection: frames before it say nothing. Cameras often begin with a burst, so its first second does not
  // count.
  void Reset() { *this = RateMeter(); }
  // A frame arrived. The rate when this frame closes a window that agrees with the one before it, else 0.
  double Note(std::int64_t nowUs);

 private:
  std::int64_t m_FirstUs = 0;
  std::int64_t m_WindowUs = 0;  // where the window began; 0: none yet
  int m_Frames = 0;             // in the window
  double m_LastRate = 0;        // of the window before
};

// `rate` in whole frames a second, at least 1. A rate between two numbers stays with the one it had: `known`, or 0.
int WholeRate(double rate, int known);

}  // namespace oculora
