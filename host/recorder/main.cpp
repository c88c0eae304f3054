// oculora-recorder: keeps the cameras of this site running, in the foreground.
#include <sys/signalfd.h>
#include <unistd.h>
#include <velm/file.h>
#include <velm/process.h>

#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

#include "recorder/recorder_log.h"
#include "recorder/recording/housekeeping.h"
#include "recorder/recording/recording_process.h"
#include "recorder/supervisor.h"
#include "recorder/worker.h"

namespace {

using oculora::kRecorderPidPath;

constexpr char kUsage[] =
    "usage: oculora-recorder\n"
    "Records the cameras of this site until SIGTERM or SIGINT. `oculora serve` runs it.\n";

int Fail(const std::string& sentence) {
  std::fprintf(stderr, "oculora-recorder: %s\n", sentence.c_str());
  return 1;
}

// A descriptor that delivers the signals the supervisor lives by, which are blocked from here on.
int OpenSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGCHLD}) sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  return signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC);
}

int Supervise() {
  // The lock excludes a second recorder even when both start at the same moment; the pid file is for others to read.
  QmFlock lock(std::string(kRecorderPidPath) + ".lock");
  if (access(oculora::kVarDir, W_OK) != 0) {
    return Fail(std::string(oculora::kVarDir) + " cannot be written; make it with \"oculora init\"");
  }
  if (lock.LockEx(0) != 0) return Fail("a recorder is running in this site already");
  std::string error;
  auto records = oculora::Database::Open(oculora::Database::Mode::kReadWrite, &error);
  if (!records) return Fail(error);
  const int signals = OpenSignals();
  if (signals < 0) return Fail(std::string("no signal descriptor: ") + std::strerror(errno));
  if (CreatePidFile(kRecorderPidPath) != 0) {
    close(signals);
    return Fail(std::string(kRecorderPidPath) + " cannot be written: " + std::strerror(errno));
  }
  oculora::LogInfo("the recorder runs");
  oculora::Supervisor(std::move(*records)).Run(signals);
  unlink(kRecorderPidPath);
  close(signals);
  oculora::LogInfo("the recorder has ended");
  return 0;
}

// 0 when that is no camera's id.
int ParseId(const char* text) {
  int id = 0;
  const char* end = text + std::strlen(text);
  const auto parsed = std::from_chars(text, end, id);
  return parsed.ec == std::errc() && parsed.ptr == end && id > 0 ? id : 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 1) return Supervise();
  // What the supervisor starts.
  if (argc == 2 && std::strcmp(argv[1], "--housekeep") == 0) return oculora::RunHousekeeping();
  const int camId = argc == 3 ? ParseId(argv[2]) : 0;
  if (camId > 0 && std::strcmp(argv[1], "--worker") == 0) return oculora::RunWorker(camId);
  if (camId > 0 && std::strcmp(argv[1], "--record") == 0) return oculora::RunRecording(camId);
  const bool help = argc == 2 && std::strcmp(argv[1], "--help") == 0;
  std::fputs(kUsage, help ? stdout : stderr);
  return help ? 0 : 2;
}
