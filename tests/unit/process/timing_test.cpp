// Pacing against a clock of the test's own.
#include "velm/timing.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace {

// What time it is, how late a sleep wakes, and how many sleeps from now a signal ends one at once.
struct {
  bool used = false;
  std::int64_t nowUs = 1'000'000'000;
  std::int64_t overshootUs = 0;
  int signalIn = -1;
} g_Clock;

}  // namespace

// In place of the C library's.
extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec* now) noexcept {
  if (!g_Clock.used) return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
  *now = {static_cast<time_t>(g_Clock.nowUs / 1000000), static_cast<long>(g_Clock.nowUs % 1000000 * 1000)};
  return 0;
}

extern "C" __attribute__((visibility("default"))) int clock_nanosleep(clockid_t, int, const timespec* until,
                                                                      timespec*) {
  if (g_Clock.signalIn-- == 0) return EINTR;
  g_Clock.nowUs = std::int64_t{until->tv_sec} * 1000000 + until->tv_nsec / 1000 + g_Clock.overshootUs;
  return 0;
}

namespace {

// How long `passes` of a loop take whose body takes `workUs`.
std::int64_t Pass(DelayTimer& timer, int passes, std::int64_t workUs) {
  const std::int64_t begin = g_Clock.nowUs;
  for (int pass = 0; pass < passes; ++pass) {
    g_Clock.nowUs += workUs;
    timer.Delay();
  }
  return g_Clock.nowUs - begin;
}

TEST(DelayTimer, KeepsItsRateForHoursAndBeginsAnewWhenLate) {
  g_Clock.used = true;
  DelayTimer timer(40000);
  timer.BeginTiming();
  g_Clock.overshootUs = 700;
  EXPECT_EQ(Pass(timer, 90000, 5000), 90000 * std::int64_t{40000} + 700) << "an hour at 25 a second";
  g_Clock.overshootUs = 0;
  EXPECT_EQ(Pass(timer, 1, 70000), 70000);
  EXPECT_EQ(Pass(timer, 10, 0), 10 * 40000 - 30000 - 700) << "late by less than a second: made up for";
  EXPECT_EQ(Pass(timer, 1, 1500000), 1500000);
  EXPECT_EQ(Pass(timer, 10, 0), 10 * 40000) << "later: nothing is caught up";
  g_Clock.signalIn = 0;
  EXPECT_EQ(Pass(timer, 1, 10000), 10000) << "a signal";
  EXPECT_EQ(Pass(timer, 1, 0), 40000);
  timer.SetDelayTime(10000);
  EXPECT_EQ(Pass(timer, 100, 2000), 100 * 10000);
  g_Clock.used = false;
}

}  // namespace
