// The supervisor's handle of one worker process.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace oculora {

// Does not reap: the owner tells it when the process has ended. Must not be destroyed while it runs.
class WorkerProcess {
 public:
  bool IsRunning() const { return m_Pid > 0; }
  bool IsStopping() const { return m_KillAtUs != 0; }
  pid_t Pid() const { return m_Pid; }

  // Starts a worker for the camera. False with errno when no process can be had. The worker cannot outlive this
  // process.
  bool Start(int camId);
  // Asks it to end; Expire kills it when it has not within three seconds. Harmless when repeated.
  void Stop();
  // When Expire has something to do (CLOCK_MONOTONIC microseconds); 0: never.
  std::int64_t ExpiryUs() const { return m_KillAtUs; }
  void Expire(std::int64_t nowUs);
  // The process was reaped. How long it had run, in milliseconds.
  long long Ended();

 private:
  pid_t m_Pid = 0;
  std::int64_t m_StartedUs = 0;
  std::int64_t m_KillAtUs = 0;  // 0: not asked to end
};

// How a process ended, from its wait status: "it was ended by signal 9 (Killed)".
std::string DescribeEnd(int status);

}  // namespace oculora
