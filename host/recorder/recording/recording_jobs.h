// What recording leaves to threads beside it: flushing, finishing files, thumbnails.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "recorder/recording/job_thread.h"
#include "recorder/recording/records_link.h"
#include "recorder/recording/take.h"

namespace oculora {

// Nothing here waits for the disk but the destructor, which waits for the job at hand.
class RecordingJobs {
 public:
  // Closes and finishes a take's file, and then its row; tries until it has succeeded. `failure`: why a take ends that
  // was asked for, should no picture be in it; may be empty.
  void Finish(EndedTake take, std::string failure);
  // Makes a thumbnail; a failure is none of the take.
  void MakeThumbnail(const EventRecord& event, Bytes picture, std::vector<std::uint8_t> extra);
  // Has what was written to the file put on the disk, so that the writer's own Sync has little to wait for. The result
  // turns from empty true when it is done.
  std::shared_ptr<std::atomic<bool>> Flush(const std::string& path);

  bool IsIdle() const { return m_Later.IsIdle(); }
  bool WaitIdle(int timeoutMs) const { return m_Later.WaitIdle(timeoutMs); }

 private:
  bool FinishOne(EndedTake& take, const std::string& failure);

  RecordsLink m_Records;  // of the thread m_Later
  std::string m_LastTrouble;
  JobThread m_Flushing;
  JobThread m_Later;
};

}  // namespace oculora
