// Looking at cameras.
#include "admin/camera_state.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "records/camera_names.h"

namespace oculora {
namespace {

void Judge(CameraState& camera, bool recorderRuns) {
  const auto ring = std::find_if(camera.streams.begin(), camera.streams.end(),
                                 [](const StreamState& stream) { return stream.id.kind == RingKind::kVideo; });
  if (camera.camera.ownerNdId != 0) {
    camera.state = "remote";
  } else if (!camera.camera.enabled) {
    camera.state = "disabled";
  } else if (!recorderRuns) {
    camera.state = "off";
    camera.reason = "the recorder is not running";
  } else if (ring == camera.streams.end() || !ring->exists) {
    camera.state = "off";
    camera.reason = "the recorder has made no frame ring for it yet";
  } else {
    camera.state = StateName(ring->status.state);
    camera.reason = ring->status.reason;
  }
}

bool HasFrames(const std::vector<CameraState>& cameras) {
  for (const CameraState& camera : cameras) {
    for (const StreamState& stream : camera.streams) {
      if (stream.exists && stream.status.state == SourceState::kStreaming) return true;
    }
  }
  return false;
}

void MeasureRates(std::vector<CameraState>& cameras, int observeMs) {
  const auto start = std::chrono::steady_clock::now();
  std::this_thread::sleep_for(std::chrono::milliseconds(observeMs));
  for (CameraState& camera : cameras) {
    for (StreamState& stream : camera.streams) {
      const std::uint64_t before = stream.status.framesWritten;
      if (!stream.exists || !ReadRingStatus(stream.id, stream.status)) continue;
      const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
      if (stream.status.framesWritten >= before) {
        stream.fps = static_cast<double>(stream.status.framesWritten - before) / passed.count();
      }
    }
  }
}

}  // namespace

std::vector<CameraState> ObserveCameras(const std::vector<CameraRecord>& cameras, bool recorderRuns, int observeMs) {
  std::vector<CameraState> states;
  for (const CameraRecord& camera : cameras) {
    CameraState& state = states.emplace_back();
    state.camera = camera;
    for (const RingPlan& plan : PlanRings(camera)) {
      StreamState& stream = state.streams.emplace_back();
      stream.id = plan.id;
      stream.exists = ReadRingStatus(plan.id, stream.status);
    }
    state.remux = LookAtRemux(camera.id);
    Judge(state, recorderRuns);
  }
  if (observeMs > 0 && HasFrames(states)) MeasureRates(states, observeMs);
  return states;
}

}  // namespace oculora
