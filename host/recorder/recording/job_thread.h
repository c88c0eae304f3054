// A thread for work that must not hold up the writing of frames.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace oculora {

// Does one job after the other, with little claim to the processor and the disk.
class JobThread {
 public:
  // True: done. False: it cannot be done now; it is tried again every two seconds, while others go on.
  using Job = std::function<bool()>;

  JobThread();
  ~JobThread();  // after the job at hand; those that wait are dropped
  JobThread(const JobThread&) = delete;
  JobThread& operator=(const JobThread&) = delete;

  void Add(Job job);
  bool IsIdle() const;
  // Waits until all is done, at most so long. Whether it is.
  bool WaitIdle(int timeoutMs) const;

 private:
  void Run();

  mutable std::mutex m_Lock;
  mutable std::condition_variable m_Changed;
  std::deque<Job> m_Jobs;
  std::deque<Job> m_Later;  // failed; put back when it is time
  bool m_Busy = false;
  bool m_Stop = false;
  std::thread m_Thread;
};

// Gives the calling thread little claim to the disk and the processor.
void LowerPriority();

}  // namespace oculora
