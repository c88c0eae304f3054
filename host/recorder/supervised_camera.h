// One camera under supervision: its rings, its worker process and when to start that again.
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

  // What the records say now; an empty one: the camera was removed. A running worker whose set-up is out of date is
  // asked to end first.
  void SetWanted(std::optional<CameraRecord> camera);
  // Starts, restarts and kills what is due.
  void Tick(std::int64_t nowUs);
  // When Tick has something to do; 0: not before something else happens.
  std::int64_t NextTickUs() const;

  pid_t Pid() const { return m_Worker.Pid(); }
  // The worker was reaped with this wait status.
  void WorkerEnded(int status);
  // Whether the camera was removed and nothing of it is left.
  bool IsGone() const { return !m_Wanted && !m_Worker.IsRunning() && m_Rings.empty(); }

 private:
  void Apply();
  bool MakeRings();
  void RemoveRings();
  void Start();
  void Retry(long long ranMs, const std::string& trouble);
  bool ShouldRun() const;

  std::optional<CameraRecord> m_Wanted;
  CameraRecord m_Camera;  // what rings and worker were made for
  std::vector<RingPlan> m_Rings;
  WorkerProcess m_Worker;
  Backoff m_Backoff{500, 15000, 30000};
  std::int64_t m_StartAtUs = 0;  // 0: no start is due
  std::string m_LastTrouble;     // logged last; empty when all went well
};

}  // namespace oculora
