// The process of one camera: connects when someone watches, and keeps its rings fed.
#pragma once

#include <cstdint>
#include <string>

#include "recorder/backoff.h"
#include "recorder/camera_rings.h"
#include "recorder/rate_meter.h"
#include "records/records.h"

namespace oculora {

class Worker {
 public:
  // `rings` are attached already.
  Worker(CameraRecord camera, CameraRings rings);

  // Serves the camera until StopRequested().
  void Run();

 private:
  bool IsWanted() const;
  bool IsStrange() const;
  std::string Serve();
  std::string Copy(class Source& source, class FrameFormat& format);
  void NoteStreaming();
  void MeasureRate(std::int64_t nowUs);
  void NoteReordering();
  void NoteTooLarge();
  void NoteFailure(const std::string& reason);
  void WaitForRetry(int delayMs);

  CameraRecord m_Camera;
  CameraRings m_Rings;
  Backoff m_Backoff{500, 5000, 5000};
  std::int64_t m_StreamingSinceUs = 0;  // CLOCK_MONOTONIC; 0: no frame on this connection yet
  std::string m_LastReason;             // logged last; empty when the camera was well

  bool m_ReorderingNoted = false;
  bool m_TooLargeNoted = false;

  std::int64_t m_StrangeUntilUs = 0;  // connect without viewers so long, until what the first one needs is there
  bool m_SawPicture = false;

  RateMeter m_Rate;
  bool m_WantsRate = false;      // a profile declares none
  int m_KnownRate = 0;           // as measured and stored; 0: not yet
  std::int64_t m_StoreAtUs = 0;  // not before
};

// Entry of `oculora-recorder --worker ID`; the exit code.
int RunWorker(int camId);

}  // namespace oculora
