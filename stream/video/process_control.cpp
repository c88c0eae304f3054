// Signals of a streaming process.
#include <signal.h>

#include "videoStreaming.h"
#include "video_unit.h"

volatile int g_StopFlag = 0;

namespace {

void OnStop(int) { g_StopFlag = 1; }

}  // namespace

int VideoStreamingHandler::SetupSignalHandler() {
  struct sigaction action {};
  action.sa_handler = OnStop;
  sigemptyset(&action.sa_mask);
  // The texts say "send" where they mean "handle"; they are part of the interface.
  if (sigaction(SIGTERM, &action, nullptr) != 0) {
    QM_LOG(LOG_LEVEL_FATAL, "Failed to send SIGTERM\n");
    return -1;
  }
  if (sigaction(SIGINT, &action, nullptr) != 0) {
    QM_LOG(LOG_LEVEL_FATAL, "Failed to send SIGINT\n");
    return -1;
  }
  return 0;
}
