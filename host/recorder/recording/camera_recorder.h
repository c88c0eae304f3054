// Records one camera: which takes there are, and giving each of them the camera's frames.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "recorder/recording/recording_jobs.h"
#include "recorder/recording/records_link.h"
#include "recorder/recording/take.h"
#include "records/events.h"

namespace oculora {

// Times are CLOCK_MONOTONIC microseconds unless they are a frame's.
class CameraRecorder {
 public:
  // `feed` has started.
  CameraRecorder(CameraRecord camera, FrameFeed& feed);

  // Gives a frame to the takes, and begins those that wait for one.
  void Write(const FeedFrame& frame, std::int64_t nowUs);
  // To be called several times a second, with frames or without: looks at records, disk and camera.
  void Tick(std::int64_t nowUs);
  // Whether there is nothing to record any more and all is written.
  bool IsDone() const;
  // Ends all takes and waits for their files, at most so long; what is left then is completed by a later recovery.
  void Stop(int timeoutMs);

 private:
  // A recording that was asked for and has no picture yet.
  struct Request {
    int eventId = 0;
    std::int64_t wantedUs = 0;
    std::int64_t giveUpAtUs = 0;
  };
  struct Running {
    Take take;
    std::int64_t flushAtUs = 0;
    std::shared_ptr<std::atomic<bool>> flushed;  // null: no flush is under way
  };
  enum class Begun { kYes, kNotNow, kTrouble };

  bool IsContinuous() const;
  std::vector<std::uint8_t> ExtraFor(const FeedFrame& frame) const;

  void WriteContinuous(const FeedFrame& frame, Bytes extra, std::int64_t nowUs);
  void WriteRequested(const FeedFrame& frame, Bytes extra, std::int64_t nowUs);
  void BeginRequests(const FeedFrame& frame, Bytes extra, std::int64_t nowUs);
  Begun Begin(EventRecord event, const FeedFrame& frame, Bytes extra, std::int64_t nowUs,
              std::unique_ptr<Running>& running);
  bool WriteRow(EventRecord& event);
  void RemoveRow(const EventRecord& event, const std::string& reason);
  void End(std::unique_ptr<Running>& running);
  void EndAll();

  void ReadRecords(std::int64_t nowUs);
  void TakeRow(const EventRecord& row, std::int64_t nowUs);
  void AddRequest(const EventRecord& row, std::int64_t nowUs);
  bool FailRequest(const Request& request, const std::string& reason);
  void GiveUpRequests(std::int64_t nowUs);
  void Flush(Running& running, std::int64_t nowUs);
  void CountLoss(const FeedFrame& frame);
  void TellLoss(std::int64_t nowUs);
  void CheckDisk(std::int64_t nowUs);
  void NoteTrouble(const std::string& trouble, std::int64_t nowUs);
  void LookAtCamera();
  void StoreState();

  CameraRecord m_Camera;
  FrameFeed& m_Feed;
  RecordsLink m_Records;
  bool m_KnowsRecords = false;  // they were read once
  std::int64_t m_ReserveMb = 0;

  std::unique_ptr<Running> m_Continuous;
  std::vector<std::unique_ptr<Running>> m_Requested;
  std::vector<Request> m_Requests;

  std::string m_Trouble;         // of the disk; empty: none
  std::int64_t m_DiskAtUs = 0;   // look at it then
  std::int64_t m_BeginAtUs = 0;  // no new file before, as the records refused a row
  std::int64_t m_ReadAtUs = 0;
  std::int64_t m_LastFrameUs = 0;
  bool m_LacksKey = false;  // since the last loss
  std::int64_t m_Lost = 0;  // frames, and nobody was told yet
  std::int64_t m_LossToldUs = 0;
  std::string m_CameraReason;  // why there are no pictures
  std::optional<RecordingState> m_State;
  std::string m_StateReason;

  RecordingJobs m_Jobs;
};

}  // namespace oculora
