// How fast a recorded event is played, and which frame comes next.
#pragma once

#include <cstdint>

struct PlayRange {
  int first;
  int last;         // inclusive
  float frameRate;  // frames a second of the recording
};

// Microseconds between two frames of a recording at normal speed, truncated; the largest int for a rate that is none.
int BaseDelayUs(float frameRate);
// The same at play rate `rate`: below 0 each frame stays that many times as long. Bounded by the largest int.
int IntervalUs(float frameRate, int rate);
// The frame after `frame`: a rate above 0 skips, any other one goes step by step.
std::int64_t NextFrame(std::int64_t frame, int rate);
