// The supervisor's handle of one process that it runs: a camera's worker, its recording, the housekeeping.
#include "recorder/worker_process.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "recorder/clock.h"
#include "recorder/stop_signal.h"

namespace oculora {
namespace {

// In the child, between fork and exec: nothing here may allocate or lock.
[[noreturn]] void BecomeWorker(pid_t parent, const char* role, const char* camId) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(1);  // it died before the line above
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  execl("/proc/self/exe", "oculora-recorder", role, camId, static_cast<char*>(nullptr));
  _exit(127);
}

}  // namespace

bool WorkerProcess::Start(int camId) {
  const std::string id = std::to_string(camId);
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid < 0) return false;
  if (pid == 0) BecomeWorker(parent, m_Role, camId != 0 ? id.c_str() : nullptr);
  m_Pid = pid;
  m_StartedUs = MonotonicUs();
  m_KillAtUs = 0;
  return true;
}

void WorkerProcess::Stop() {
  if (!IsRunning() || IsStopping()) return;
  kill(m_Pid, SIGTERM);
  m_KillAtUs = MonotonicUs() + m_GraceMs * 1000LL;
}

void WorkerProcess::Expire(std::int64_t nowUs) {
  if (!IsRunning() || !IsStopping() || nowUs < m_KillAtUs) return;
  kill(m_Pid, SIGKILL);
  m_KillAtUs = nowUs + m_GraceMs * 1000LL;
}

long long WorkerProcess::Ended() {
  m_Pid = 0;
  m_KillAtUs = 0;
  return (MonotonicUs() - m_StartedUs) / 1000;
}

std::string DescribeEnd(int status) {
  if (WIFSIGNALED(status)) {
    const int signal = WTERMSIG(status);
    return "it was ended by signal " + std::to_string(signal) + " (" + strsignal(signal) + ")";
  }
  if (WEXITSTATUS(status) == kStuckExitCode) return "it was stuck and gave up";
  return "it ended with code " + std::to_string(WEXITSTATUS(status));
}

}  // namespace oculora
