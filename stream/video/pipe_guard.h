// Keeps the two threads of a remux from waiting for each other at their pipe.
#pragma once

// Opening one end of a named pipe waits until somebody opens the other. The guard holds a reading end of its own, so
// that the feeder's open never waits and its writes never fail for want of a reader. One per process, used by the
// feeder.
class PipeGuard {
 public:
  // Opens the guard's end. False when that fails.
  static bool Hold(const char* path);
  // Opens both ends for a moment, even when the pipe's name is gone: a thread that waits in open(2) goes on and then
  // finds the end of its input. Harmless without a guard.
  static void WakeReader();
  static void Release();

 private:
  static int s_Fd;
};
