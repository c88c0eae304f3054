// How the cameras of a site are doing, from records and frame rings.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "admin/remux_state.h"
#include "recorder/camera_rings.h"
#include "records/records.h"
#include "shm/ring_writer.h"

namespace oculora {

struct StreamState {
  RingId id;
  bool exists = false;  // the ring is there; without it the rest says nothing
  RingStatus status;
  double fps = 0;  // frames a second while it was observed
};

struct CameraState {
  CameraRecord camera;
  std::string state;   // "idle", "connecting", "streaming", "failed", "disabled", "off", or "remote"
  std::string reason;  // plain English, empty unless something is wrong
  std::vector<StreamState> streams;
  std::optional<RemuxState> remux;  // HLS is being made of it
};

// Looks at every camera's rings; when one has frames, twice, `observeMs` apart, for the rate.
std::vector<CameraState> ObserveCameras(const std::vector<CameraRecord>& cameras, bool recorderRuns, int observeMs);

}  // namespace oculora
