// Requests to play an event: parameters, signals, and the pid file by which players of a session take over.
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "event_id.h"
#include "event_unit.h"
#include "streaming.h"
#include "velm/event.h"
#include "velm/process.h"

volatile std::uint8_t gStopPlay = 0;
volatile std::uint8_t gPidFileSignalled = 0;

namespace {

void OnSigTerm(int) { gStopPlay = 1; }
void OnSigUsr1(int) { gPidFileSignalled = 1; }

// No flags: a signal ends a wait, so that the player looks at its flags soon.
bool Install(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  return sigaction(signal, &action, nullptr) == 0;
}

void PrintWarningPicture() { printf("Location: ../images/warning.png\r\n\r\n"); }

}  // namespace

std::string StreamingHandler::GetPidFilePath(const std::string& session) {
  return std::string(kPlayerPidFile) + "." + session;
}

int StreamingHandler::SetupSignalHandler() {
  if (!Install(SIGTERM, OnSigTerm)) {
    QM_LOG_ALWAYS(__func__, "Failed to setup signal handler [SIGTERM]\n");
    return -1;
  }
  if (!Install(SIGUSR1, OnSigUsr1)) {
    QM_LOG_ALWAYS(__func__, "Failed to setup signal handler [SIGUSR1]\n");
    return -1;
  }
  return 0;
}

int StreamingHandler::MultipartFetch(const Event& event, int ndId, int camIdOnNd) {
  if (ndId >= 1) return ForwardMultipartFetch(ndId, camIdOnNd);
  gSessionId = m_pRequest->GetSessionID();
  if (SetupSignalHandler() != 0) {
    QM_LOG_ALWAYS(__func__, "Failed to setup signal handler\n");
    return -1;
  }
  if (gSessionId.empty()) {
    PrintWarningPicture();
    QM_LOG_ALWAYS(__func__, "Failed to get session ID.\n");
    return -1;
  }
  const std::string pidFile = GetPidFilePath(gSessionId);
  // The signal goes out before the file names this process: the earlier player looks at the file at its next frame.
  if (m_pRequest->GetParam("checkpgid", 1).asInt() != 0) ClearOldProcess(pidFile, SIGUSR1);
  if (ProcPidFileCreate(pidFile.c_str()) != 0) {
    PrintWarningPicture();
    QM_LOG_ALWAYS(__func__, "Failed to write pid file.\n");
    return -1;
  }
  return PlayRequested(event);
}

int StreamingHandler::PlayRequested(const Event& event) {
  const int frameStart = m_pRequest->GetParam("framestart", 0).asInt();
  const int frameStop = m_pRequest->GetParam("framestop", -1).asInt();
  const long long timestamp = strtoll(m_pRequest->GetParam("timestamp", "0").asString().c_str(), nullptr, 10);
  const int asked = ReadInt32(m_pRequest->GetParam("playrate", "1").asString());
  const int rate = asked == 0 ? 1 : asked;
  const bool changeRate = m_pRequest->GetParam("changerate", false).asBool();
  if (event.GetId() <= 0 || timestamp < 1 || frameStart < 0) {
    PrintWarningPicture();
    QM_LOG_ALWAYS("MultipartFetch", "Invalid parameters.\n");
    return -1;
  }
  // From here on a failure is shown, not reported.
  if (PlayEvent(event, frameStart, frameStop, timestamp, rate, changeRate) != 0) PrintWarningPicture();
  return 0;
}

void StreamingHandler::RemovePidFile() {
  const std::string path = GetPidFilePath(gSessionId);
  if (gPidFileSignalled != 0) return;  // a newer player of the session owns the file
  if (remove(path.c_str()) == -1) QM_LOG_ALWAYS(__func__, "Fail to remove file.[%s]\n", path.c_str());
}
