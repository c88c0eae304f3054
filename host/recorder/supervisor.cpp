// Keeps rings, a worker and a recording process for every local camera, as the records have them, and the housekeeping.
#include "recorder/supervisor.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <set>

#include "recorder/clock.h"
#include "recorder/recorder_log.h"
#include "recorder/recording/recovery.h"
#include "records/events.h"

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
  if (!m_Recovered) RecoverRecordings();
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
  m_Records = Database::Open(Database::Mode::kReadWrite, &error, kRecordsPath, Database::kRecorderPatienceMs);
  m_File = file;
  m_Version = -1;
  if (m_Records) return true;
  if (!m_RecordsTrouble) LogError("cameras stay as they are: %s", error.c_str());
  m_RecordsTrouble = true;
  return false;
}

// Before any recording process runs. Those of a recorder that was killed just now may still be ending; they look after
// what they had, and a process that begins looks as well.
void Supervisor::RecoverRecordings() {
  m_Recovered = true;
  oculora::RecoverRecordings(*m_Records, 0, [](const std::string& sentence) { LogInfo("%s", sentence.c_str()); });
  EventTable events(*m_Records);
  for (const CameraRecording& camera : events.ListCameraStates()) {
    events.SetCameraState(camera.camId, RecordingState::kOff, "", WallClockUs() / 1000000);
  }
}

void Supervisor::SyncCameras() {
  std::map<int, CameraRecord> wanted;
  for (CameraRecord& camera : m_Records->ListCameras()) {
    if (camera.ownerNdId == 0) wanted.emplace(camera.id, std::move(camera));
  }
  std::set<int> asked;
  for (const EventRecord& event : EventTable(*m_Records).ListUnfinished(0)) {
    if (event.state == EventState::kRequested) asked.insert(event.camId);
  }
  if (m_Records->IsUnreadable()) return;  // a list cut short must not look like removed cameras
  for (auto& [id, camera] : m_Cameras) {
    const auto found = wanted.find(id);
    camera.SetWanted(found == wanted.end() ? std::nullopt : std::optional(found->second), asked.contains(id));
  }
  for (auto& [id, record] : wanted) {
    const CameraRecord copy = record;
    if (const auto [at, added] = m_Cameras.try_emplace(id, std::move(record)); added) {
      at->second.SetWanted(copy, asked.contains(id));
    }
  }
}

void Supervisor::Reap() {
  int status = 0;
  for (pid_t pid = waitpid(-1, &status, WNOHANG); pid > 0; pid = waitpid(-1, &status, WNOHANG)) {
    if (pid == m_Housekeeping.Pid()) {
      const bool asked = m_Housekeeping.IsStopping();
      m_HousekeepAtUs = MonotonicUs() + m_HousekeepingBackoff.NextDelayMs(m_Housekeeping.Ended()) * 1000LL;
      if (status != 0 && !asked) LogError("the housekeeping is started again: %s", DescribeEnd(status).c_str());
      continue;
    }
    const auto ended =
        std::find_if(m_Cameras.begin(), m_Cameras.end(), [pid](const auto& entry) { return entry.second.Runs(pid); });
    if (ended != m_Cameras.end()) ended->second.Ended(pid, status);
  }
}

void Supervisor::Tick() {
  const std::int64_t nowUs = MonotonicUs();
  for (auto& [id, camera] : m_Cameras) camera.Tick(nowUs);
  std::erase_if(m_Cameras, [](const auto& entry) { return entry.second.IsGone(); });
  m_Housekeeping.Expire(nowUs);
  if (m_Housekeeping.IsRunning() || m_Stopping || !m_Recovered || nowUs < m_HousekeepAtUs) return;
  if (!m_Housekeeping.Start(0)) m_HousekeepAtUs = nowUs + m_HousekeepingBackoff.NextDelayMs(0) * 1000LL;
}

// Milliseconds until `untilUs` or until a camera needs attention, whichever comes first.
int Supervisor::WaitMs(std::int64_t untilUs) const {
  for (const auto& [id, camera] : m_Cameras) {
    const std::int64_t next = camera.NextTickUs();
    if (next != 0) untilUs = std::min(untilUs, next);
  }
  if (m_Housekeeping.ExpiryUs() != 0) untilUs = std::min(untilUs, m_Housekeeping.ExpiryUs());
  return static_cast<int>(std::clamp<std::int64_t>((untilUs - MonotonicUs() + 999) / 1000, 0, kPollUs / 1000));
}

void Supervisor::StopAll(int signals) {
  m_Stopping = true;
  m_Housekeeping.Stop();
  for (auto& [id, camera] : m_Cameras) camera.SetWanted(std::nullopt, false);
  for (Tick(); !m_Cameras.empty() || m_Housekeeping.IsRunning(); Tick()) {
    WaitForStop(signals, WaitMs(MonotonicUs() + kPollUs));
    Reap();
  }
}

}  // namespace oculora
