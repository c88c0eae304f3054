// Pacing of streaming loops.
#pragma once

#include <cstdint>

// Waits so that passes of a loop begin at least a period apart. One thread. Not affected by clock changes.
class DelayTimer {
 public:
  explicit DelayTimer(int periodUs) : m_PeriodUs(periodUs) {}

  // Sets the first pacing point to now.
  void BeginTiming();
  // Changes the period, in microseconds, from the next Delay on.
  void SetDelayTime(int periodUs) { m_PeriodUs = periodUs; }
  // Waits until a period has passed since the previous pacing point, then makes now the pacing point. A thread that
  // reads a frame ring has nothing to do before the next frame: it sleeps until that arrives, at least the period, at
  // most the longer of the period and 0.1 s, in place of a wake-up every period. One that copies frame after frame
  // sleeps as long and then finds several. Returns early when a signal arrives, so that a loop sees its stop flag.
  void Delay();

 private:
  std::int64_t m_PeriodUs;
  std::int64_t m_LastUs = 0;  // CLOCK_MONOTONIC
};
