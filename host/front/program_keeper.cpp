// Supervision of child programs.
#include "front/program_keeper.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>

namespace oculora {
namespace {

constexpr int kFirstPauseMs = 1000;
constexpr int kLongestPauseMs = 30000;
constexpr int kGoodRunMs = 60000;
constexpr int kStopMs = 10000;
constexpr int kOrphanStopMs = 3000;
constexpr int kPassedSocket = 3;

std::int64_t NowMs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

std::string DescribeEnd(int status) {
  if (WIFSIGNALED(status)) return "signal " + std::to_string(WTERMSIG(status));
  return "exit code " + std::to_string(WEXITSTATUS(status));
}

// The child's side: becomes the program, or leaves with 127.
[[noreturn]] void Become(const std::vector<std::string>& argv, int socket, pid_t parent, const sigset_t& mask) {
  setpgid(0, 0);  // Ctrl-C goes to the keeper, which decides on the order
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) _exit(0);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(nothing, STDIN_FILENO);
  if (socket >= 0) {
    if (socket == kPassedSocket) {
      fcntl(socket, F_SETFD, 0);
    } else {
      dup2(socket, kPassedSocket);
    }
    setenv("LISTEN_FDS", "1", 1);
    setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
  }
  std::vector<char*> arguments;
  arguments.reserve(argv.size() + 1);
  for (const std::string& argument : argv) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  execv(arguments[0], arguments.data());
  fprintf(stderr, "oculora: %s cannot be started: %s\n", arguments[0], std::strerror(errno));
  _exit(127);
}

std::vector<pid_t> OwnChildren() {
  const std::string self = std::to_string(getpid());
  std::ifstream list("/proc/self/task/" + self + "/children");
  std::vector<pid_t> children;
  for (pid_t pid = 0; list >> pid;) children.push_back(pid);
  return children;
}

}  // namespace

ProgramKeeper::ProgramKeeper() {
  sigemptyset(&m_Signals);
  for (const int signal : {SIGINT, SIGTERM, SIGCHLD}) sigaddset(&m_Signals, signal);
  // Under nohup the end of the terminal is none of its business.
  struct sigaction hangUp {};
  if (sigaction(SIGHUP, nullptr, &hangUp) == 0 && hangUp.sa_handler != SIG_IGN) sigaddset(&m_Signals, SIGHUP);
  sigprocmask(SIG_BLOCK, &m_Signals, &m_OldMask);
  prctl(PR_SET_CHILD_SUBREAPER, 1);
}

ProgramKeeper::~ProgramKeeper() {
  StopAll();
  sigprocmask(SIG_SETMASK, &m_OldMask, nullptr);
}

bool ProgramKeeper::Start(const std::string& name, const std::vector<std::string>& argv, int socket) {
  m_Programs.push_back({name, argv, socket, 0, 0, 0, Backoff(kFirstPauseMs, kLongestPauseMs, kGoodRunMs)});
  return Launch(m_Programs.back());
}

bool ProgramKeeper::Launch(Program& program) {
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid == 0) Become(program.argv, program.socket, parent, m_OldMask);
  program.startedMs = NowMs();
  if (pid < 0) {
    fprintf(stderr, "oculora: %s cannot be started: %s\n", program.name.c_str(), std::strerror(errno));
    program.restartMs = NowMs() + program.backoff.NextDelayMs(0);
    return false;
  }
  program.pid = pid;
  program.restartMs = 0;
  return true;
}

void ProgramKeeper::Wait(int timeoutMs) {
  const timespec timeout{timeoutMs / 1000, (timeoutMs % 1000) * 1000000L};
  const int signal = sigtimedwait(&m_Signals, nullptr, &timeout);
  if (signal == SIGINT || signal == SIGTERM || signal == SIGHUP) {
    m_StopRequested = true;
    ++m_StopSignals;
  }
  Reap();
}

void ProgramKeeper::Reap() {
  int status = 0;
  for (pid_t pid; (pid = waitpid(-1, &status, WNOHANG)) > 0;) {
    const auto program =
        std::find_if(m_Programs.begin(), m_Programs.end(), [pid](const Program& p) { return p.pid == pid; });
    if (program == m_Programs.end()) continue;  // an orphan adopted from one of them
    program->pid = 0;
    m_SomethingEnded = true;
    const int delayMs = program->backoff.NextDelayMs(NowMs() - program->startedMs);
    program->restartMs = NowMs() + delayMs;
    if (!m_Running || m_StopRequested) continue;
    fprintf(stderr, "oculora: %s ended (%s); starting it again in %d s\n", program->name.c_str(),
            DescribeEnd(status).c_str(), (delayMs + 999) / 1000);
  }
}

bool ProgramKeeper::WaitUntil(const std::function<bool()>& ready, int seconds) {
  m_SomethingEnded = false;
  const std::int64_t end = NowMs() + std::int64_t{seconds} * 1000;
  while (NowMs() < end && !m_StopRequested && !m_SomethingEnded) {
    if (ready()) return true;
    Wait(50);
  }
  return false;
}

int ProgramKeeper::UntilNextRestartMs() const {
  std::int64_t waitMs = 3600000;
  for (const Program& program : m_Programs) {
    if (program.restartMs != 0) waitMs = std::min(waitMs, program.restartMs - NowMs());
  }
  return static_cast<int>(std::max<std::int64_t>(waitMs, 0));
}

void ProgramKeeper::Run() {
  m_Running = true;
  while (!m_StopRequested) {
    Wait(UntilNextRestartMs());
    for (Program& program : m_Programs) {
      if (!m_StopRequested && program.restartMs != 0 && program.restartMs <= NowMs()) Launch(program);
    }
  }
}

void ProgramKeeper::Stop(pid_t pid, int timeoutMs) {
  kill(pid, SIGTERM);
  const int signalsBefore = m_StopSignals;
  const std::int64_t end = NowMs() + timeoutMs;
  bool killed = false;
  for (;;) {
    // Not reaped yet means that the pid is still this process's, whatever its state.
    siginfo_t info{};
    if (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid == pid) break;
    if (!killed && (NowMs() >= end || m_StopSignals > signalsBefore)) {
      kill(pid, SIGKILL);
      killed = true;
    }
    const timespec pause{0, 20000000};
    const int signal = sigtimedwait(&m_Signals, nullptr, &pause);
    if (signal == SIGINT || signal == SIGTERM) ++m_StopSignals;
  }
  Reap();
}

void ProgramKeeper::StopAll() {
  m_Running = false;
  for (auto program = m_Programs.rbegin(); program != m_Programs.rend(); ++program) {
    program->restartMs = 0;
    if (program->pid > 0) Stop(program->pid, kStopMs);
  }
  // Request processes and helpers of theirs; ending one may orphan the next.
  for (std::vector<pid_t> orphans; !(orphans = OwnChildren()).empty();) {
    for (const pid_t pid : orphans) kill(pid, SIGTERM);
    for (const pid_t pid : orphans) Stop(pid, kOrphanStopMs);
  }
}

}  // namespace oculora
