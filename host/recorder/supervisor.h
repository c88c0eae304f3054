// Keeps rings, a worker and a recording process for every local camera, as the records have them, and the housekeeping.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>

#include "recorder/supervised_camera.h"
#include "records/records.h"

namespace oculora {

// One per site, single-threaded. A trouble with the records leaves the cameras as they are.
class Supervisor {
 public:
  explicit Supervisor(Database records) : m_Records(std::move(records)) {}

  // Runs until SIGTERM or SIGINT, then ends workers and removes rings. `signals` is a signalfd of those and SIGCHLD,
  // which are blocked.
  void Run(int signals);

 private:
  void PollRecords();
  bool ReopenWhenNeeded();
  void RecoverRecordings();
  void SyncCameras();
  void Reap();
  void Tick();
  int WaitMs(std::int64_t untilUs) const;
  void StopAll(int signals);

  std::optional<Database> m_Records;
  std::int64_t m_Version = -1;
  ino_t m_File = 0;  // the records' inode when they were opened; another one: restored from a copy
  bool m_RecordsTrouble = false;
  bool m_Recovered = false;
  std::map<int, SupervisedCamera> m_Cameras;  // by id
  WorkerProcess m_Housekeeping{"--housekeep"};
  Backoff m_HousekeepingBackoff{1000, 60000, 30000};
  std::int64_t m_HousekeepAtUs = 0;  // not before
  bool m_Stopping = false;
};

}  // namespace oculora
