// One camera under supervision: its rings, its worker and its recording process, and when to start these again.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "recorder/backoff.h"
#include "recorder/camera_rings.h"
#include "recorder/worker_process.h"
#include "records/records.h"

namespace oculora {

// Nothing blocks. Times are CLOCK_MONOTONIC microseconds.
class SupervisedCamera {
 public:
  explicit SupervisedCamera(CameraRecord camera);

  // What the records say now; an empty one: the camera was removed. Running processes whose set-up is out of date are
  // asked to end first. `asked`: somebody asked for a recording.
  void SetWanted(std::optional<CameraRecord> camera, bool asked);
  // Starts, restarts and kills what is due.
  void Tick(std::int64_t nowUs);
  // When Tick has something to do; 0: not before something else happens.
  std::int64_t NextTickUs() const;

  // Whether that process is one of this camera's.
  bool Runs(pid_t pid) const { return pid == m_Worker.Pid() || pid == m_Recording.Pid(); }
  // It was reaped with this wait status.
  void Ended(pid_t pid, int status);
  // Whether the camera was removed and nothing of it is left.
  bool IsGone() const { return !m_Wanted && !m_Worker.IsRunning() && !m_Recording.IsRunning() && m_Rings.empty(); }

 private:
  void Apply();
  bool MakeRings();
  void RemoveRings();
  void Start();
  void Retry(long long ranMs, const std::string& trouble);
  bool ShouldRun() const;
  void WorkerEnded(int status);
  void RecordingEnded(int status);
  void KeepRecording(std::int64_t nowUs);
  bool ShouldRecord() const;

  std::optional<CameraRecord> m_Wanted;
  CameraRecord m_Camera;  // what rings and worker were made for
  std::vector<RingPlan> m_Rings;
  WorkerProcess m_Worker;
  Backoff m_Backoff{500, 15000, 30000};
  std::int64_t m_StartAtUs = 0;  // 0: no start is due
  std::string m_LastTrouble;     // logged last; empty when all went well

  WorkerProcess m_Recording{"--record", 8000};
  Backoff m_RecordingBackoff{500, 10000, 30000};
  std::int64_t m_RecordAtUs = 0;  // not before
  bool m_Asked = false;           // for a recording
  bool m_Crashed = false;         // a recording process did, and left something to complete
};

}  // namespace oculora
