// Keeps a few long-running programs alive and ends them, and whatever they left behind, cleanly.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "recorder/backoff.h"

namespace oculora {

// One per process: it takes over SIGINT, SIGTERM, SIGHUP (unless ignored) and SIGCHLD, and adopts orphaned descendants.
// One thread.
class ProgramKeeper {
 public:
  ProgramKeeper();
  ~ProgramKeeper();  // stops everything
  ProgramKeeper(const ProgramKeeper&) = delete;
  ProgramKeeper& operator=(const ProgramKeeper&) = delete;

  // Adds and starts a program. `socket`, when not negative, becomes its descriptor 3, announced as a listening one.
  // False when it could not be started.
  bool Start(const std::string& name, const std::vector<std::string>& argv, int socket = -1);

  // Calls `ready` a few times a second until it returns true; false when `seconds` are over, a program has ended
  // meanwhile, or the process was told to stop.
  bool WaitUntil(const std::function<bool()>& ready, int seconds);

  // Restarts what ends, with growing pauses, until one of them arrives.
  void Run();

  // Ends the programs in reverse order of their start: SIGTERM, SIGKILL for those that take longer than ten seconds or
  // when asked to stop once more; then descendants that lost their parent. Waits for all of them.
  void StopAll();

  bool StopRequested() const { return m_StopRequested; }

 private:
  struct Program {
    std::string name;
    std::vector<std::string> argv;
    int socket;
    pid_t pid;               // 0 when not running
    std::int64_t startedMs;  // monotonic
    std::int64_t restartMs;  // when to start it again; 0 when it runs
    Backoff backoff;
  };

  bool Launch(Program& program);
  // Waits up to `timeoutMs` for a signal, then notes what ended.
  void Wait(int timeoutMs);
  void Reap();
  void Stop(pid_t pid, int timeoutMs);
  int UntilNextRestartMs() const;

  std::vector<Program> m_Programs;
  sigset_t m_Signals;
  sigset_t m_OldMask;
  bool m_StopRequested = false;
  bool m_Running = false;  // what ends is restarted
  bool m_SomethingEnded = false;
  int m_StopSignals = 0;
};

}  // namespace oculora
