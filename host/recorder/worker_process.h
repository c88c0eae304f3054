// The supervisor's handle of one process that it runs: a camera's worker, its recording, the housekeeping.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace oculora {

// Does not reap: the owner tells it when the process has ended. Must not be destroyed while it runs.
class WorkerProcess {
 public:
  // `role`: the option of this program that makes it one, a literal. `graceMs`: how long it may take to end when asked.
  explicit WorkerProcess(const char* role = "--worker", int graceMs = 3000) : m_Role(role), m_GraceMs(graceMs) {}

  bool IsRunning() const { return m_Pid > 0; }
  bool IsStopping() const { return m_KillAtUs != 0; }
  pid_t Pid() const { return m_Pid; }

  // Starts it for a camera (0: for the site). False with errno when no process can be had. It cannot outlive this
  // process.
  bool Start(int camId);
  // Asks it to end; Expire kills it when it has not in time. Harmless when repeated.
  void Stop();
  // When Expire has something to do (CLOCK_MONOTONIC microseconds); 0: never.
  std::int64_t ExpiryUs() const { return m_KillAtUs; }
  void Expire(std::int64_t nowUs);
  // The process was reaped. How long it had run, in milliseconds.
  long long Ended();

 private:
  const char* m_Role;
  int m_GraceMs;
  pid_t m_Pid = 0;
  std::int64_t m_StartedUs = 0;
  std::int64_t m_KillAtUs = 0;  // 0: not asked to end
};

// How a process ended, from its wait status: "it was ended by signal 9 (Killed)".
std::string DescribeEnd(int status);

}  // namespace oculora
