// Pacing of streaming loops.
#pragma once

#include <cstdint>

// Paces the passes of a loop. One thread. Not affected by clock changes.
//
// Pacing points are exactly a period apart, so that what a loop plays takes as long as it should, also after hours: a
// pass that is late is made up for by the next ones. One that is late by more than a second begins anew from where it
// is, and nothing is caught up.
class DelayTimer {
 public:
  explicit DelayTimer(int periodUs) : m_PeriodUs(periodUs) {}

  // Sets the first pacing point: now, or, with a period of at most 0.1 s, the multiple of it that has just passed.
  void BeginTiming();
  // Changes the period, in microseconds, from the next Delay on.
  void SetDelayTime(int periodUs) { m_PeriodUs = periodUs; }
  // Waits until a period has passed since the previous pacing point; that moment is the next one. Returns early when a
  // signal arrives, so that a loop sees its stop flag; the pacing point is then now.
  //
  // A thread that reads a frame ring is paced by its camera: it has nothing to do before the next frame, so it sleeps
  // until that arrives, at least the period, at most the longer of the period and 0.1 s, in place of a wake-up every
  // period, and the pacing point is when it wakes. One that copies frame after frame sleeps as long and then finds
  // several.
  void Delay();

 private:
  std::int64_t m_PeriodUs;
  std::int64_t m_LastUs = 0;  // CLOCK_MONOTONIC
};
