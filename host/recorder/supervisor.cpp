// Keeps a worker process and rings for every local camera, as the records have them.
#include "recorder/supervisor.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

#include "recorder/clock.h"
#include "recorder/recorder_log.h"

namespace oculora {
namespace {

constexpr std::int64_t kPollUs = 1000000;

ino_t InodeOf(const char* path) {
  struct stat status {};
  return stat(path, &status) == 0 ? status.st_ino : 0;
}

// Waits for a signal; whether it was one that asks to stop. SIGCHLDs only end the wait.
bool WaitForStop(int signals, int timeoutMs) {
  pollfd entry = {signals, POLLIN, 0};
  if (poll(&entry, 1, timeoutMs) <= 0) return false;
  bool stop = false;
  for (signalfd_siginfo info{}; read(signals, &info, sizeof(info)) == sizeof(info);) {
    stop = stop || info.ssi_signo == SIGTERM || info.ssi_signo == SIGINT;
  }
  return stop;
}

}  // namespace

void Supervisor::Run(int signals) {
  m_File = InodeOf(kRecordsPath);
  std::int64_t pollAtUs = MonotonicUs();
  for (bool stop = false; !stop;) {
    const std::int64_t nowUs = MonotonicUs();
    if (nowUs >= pollAtUs) {
      PollRecords();
      pollAtUs = MonotonicUs() + kPollUs;
    }
    Tick();
    stop = WaitForStop(signals, WaitMs(pollAtUs));
    Reap();
  }
  StopAll(signals);
}

void Supervisor::PollRecords() {
  if (!ReopenWhenNeeded()) return;
  const std::int64_t version = m_Records->DataVersion();
  if (version != m_Version && !m_Records->IsUnreadable()) SyncCameras();
  if (m_Records->IsUnreadable()) {
    if (!m_RecordsTrouble) LogError("cameras stay as they are: %s", m_Records->LastError().c_str());
    m_RecordsTrouble = true;
    m_Records.reset();
    return;
  }
  if (m_RecordsTrouble) LogInfo("the records can be read again");
  m_RecordsTrouble = false;
  m_Version = version;
}

bool Supervisor::ReopenWhenNeeded() {
  const ino_t file = InodeOf(kRecordsPath);
  if (m_Records && file == m_File) return true;
  std::string error;
  m_Records = Database::Open(Database::Mode::kReadWrite, &error);
  m_File = file;
  m_Version = -1;
  if (m_Records) return true;
  if (!m_RecordsTrouble) LogError("cameras stay as they are: %s", error.c_str());
  m_RecordsTrouble = true;
  return false;
}

void Supervisor::SyncCameras() {
  std::map<int, CameraRecord> wanted;
  for (CameraRecord& camera : m_Records->ListCameras()) {
    if (camera.ownerNdId == 0) wanted.emplace(camera.id, std::move(camera));
  }
  if (m_Records->IsUnreadable()) return;  // a list cut short must not look like removed cameras
  for (auto& [id, camera] : m_Cameras) {
    const auto found = wanted.find(id);
    camera.SetWanted(found == wanted.end() ? std::nullopt : std::optional(found->second));
  }
  for (auto& [id, record] : wanted) m_Cameras.try_emplace(id, std::move(record));
}

void Supervisor::Reap() {
  int status = 0;
  for (pid_t pid = waitpid(-1, &status, WNOHANG); pid > 0; pid = waitpid(-1, &status, WNOHANG)) {
    const auto ended = std::find_if(m_Cameras.begin(), m_Cameras.end(),
                                    [pid](const auto& entry) { return entry.second.Pid() == pid; });
    if (ended != m_Cameras.end()) ended->second.WorkerEnded(status);
  }
}

void Supervisor::Tick() {
  const std::int64_t nowUs = MonotonicUs();
  for (auto& [id, camera] : m_Cameras) camera.Tick(nowUs);
  std::erase_if(m_Cameras, [](const auto& entry) { return entry.second.IsGone(); });
}

// Milliseconds until `untilUs` or until a camera needs attention, whichever comes first.
int Supervisor::WaitMs(std::int64_t untilUs) const {
  for (const auto& [id, camera] : m_Cameras) {
    const std::int64_t next = camera.NextTickUs();
    if (next != 0) untilUs = std::min(untilUs, next);
  }
  return static_cast<int>(std::clamp<std::int64_t>((untilUs - MonotonicUs() + 999) / 1000, 0, kPollUs / 1000));
}

void Supervisor::StopAll(int signals) {
  for (auto& [id, camera] : m_Cameras) camera.SetWanted(std::nullopt);
  for (Tick(); !m_Cameras.empty(); Tick()) {
    WaitForStop(signals, WaitMs(MonotonicUs() + kPollUs));
    Reap();
  }
}

}  // namespace oculora
