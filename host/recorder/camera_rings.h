// The rings of one camera: which there are, and writing to all of them at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "records/records.h"
#include "shm/ring_writer.h"

namespace oculora {

struct RingPlan {
  RingId id;
  std::size_t bytes = 0;
};

// The rings a camera needs: one a distinct stream number, the mobile profile's first, and the sound of cameras that
// send it along. Empty for a camera of another recording server.
std::vector<RingPlan> PlanRings(const CameraRecord& camera);

// Whether a worker that runs for `a` may go on unchanged for `b`.
bool SameSetup(const CameraRecord& a, const CameraRecord& b);

// The attached rings of a camera; every picture goes to each for video, sound to each for audio.
class CameraRings {
 public:
  // Attaches what the supervisor made. False when a ring is missing.
  bool Attach(const CameraRecord& camera);

  // Writes one frame, stamped with `arrivedUs` (microseconds since 1970). False when it is too large for a ring;
  // a frame that readers left no room for is simply lost.
  bool Write(const void* data, std::size_t size, bool key, std::int64_t arrivedUs);
  // Whether a ring lost the frame written last.
  bool WasLost() const { return m_WasLost; }
  // Writes the sound that arrived together. Without effect for a camera that has no audio ring.
  void WriteSound(const void* data, std::size_t size, std::int64_t arrivedUs);
  bool SetExtra(const void* data, std::size_t size);
  void SetState(SourceState state, const std::string& reason);

  bool IsWatched(std::int64_t withinUs) const;
  // Sleeps until a viewer comes, at most a few seconds; a signal may end it early.
  void WaitForViewer();

 private:
  std::vector<RingWriter> m_Video;
  std::vector<RingWriter> m_Audio;
  std::int32_t m_VideoType = 0;
  bool m_WasLost = false;
};

}  // namespace oculora
