// How a worker learns that it shall end, and how it ends when a library call hangs.
#include "recorder/stop_signal.h"

#include <unistd.h>

#include <csignal>

namespace oculora {
namespace {

volatile std::sig_atomic_t g_Stop = 0;

void OnStop(int) {
  g_Stop = 1;
  alarm(1);
}

void OnAlarm(int) { _exit(g_Stop ? 0 : kStuckExitCode); }

void Handle(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;  // without SA_RESTART: blocking calls return and see the flag
  sigfillset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

}  // namespace

void InstallStopSignals() {
  Handle(SIGTERM, OnStop);
  Handle(SIGINT, OnStop);
  Handle(SIGALRM, OnAlarm);
  std::signal(SIGPIPE, SIG_IGN);
}

bool StopRequested() { return g_Stop != 0; }

void KickWatchdog() {
  if (!g_Stop) alarm(kWatchdogSeconds);
  if (g_Stop) alarm(1);  // the request came in between
}

}  // namespace oculora
