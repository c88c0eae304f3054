// The rings of one camera: which there are, and writing to all of them at once.
#include "recorder/camera_rings.h"

#include <velm/camera.h>
#include <velm/shmstream.h>

#include <algorithm>

namespace oculora {
namespace {

constexpr std::size_t kMiB = 1048576;
constexpr std::size_t kPredictedBytes = 8 * kMiB;  // H.264, MPEG-4: a group of pictures and more
constexpr std::size_t kPictureBytes = 24 * kMiB;   // MJPEG, MxPEG: six of the largest pictures
constexpr std::size_t kSoundBytes = 1 * kMiB;

bool SendsWholePictures(int videoType) { return videoType == VIDEO_TYPE_MJPEG || videoType == VIDEO_TYPE_MXPEG; }

// The measured rate is left out: the worker that measured it goes on.
bool SameProfile(const ProfileRecord& a, const ProfileRecord& b) {
  return a.profile == b.profile && a.streamNo == b.streamNo && a.fps == b.fps && a.width == b.width &&
         a.height == b.height;
}

}  // namespace

std::vector<RingPlan> PlanRings(const CameraRecord& camera) {
  if (camera.ownerNdId != 0) return {};
  std::vector<int> streams;
  const auto add = [&streams](int stream) {
    if (std::find(streams.begin(), streams.end(), stream) == streams.end()) streams.push_back(stream);
  };
  for (const auto& profile : camera.profiles) {
    if (profile.profile == kMobileProfile) add(profile.streamNo);
  }
  for (const auto& profile : camera.profiles) add(profile.streamNo);
  if (streams.empty()) add(0);

  std::vector<RingPlan> plan;
  plan.reserve(2 * streams.size());
  const std::size_t bytes = SendsWholePictures(camera.videoType) ? kPictureBytes : kPredictedBytes;
  for (const int stream : streams) plan.push_back({{camera.id, stream, RingKind::kVideo}, bytes});
  if (camera.videoType == VIDEO_TYPE_MXPEG) {
    for (const int stream : streams) plan.push_back({{camera.id, stream, RingKind::kAudio}, kSoundBytes});
  }
  return plan;
}

bool SameSetup(const CameraRecord& a, const CameraRecord& b) {
  return a.videoType == b.videoType && a.source == b.source && a.ownerNdId == b.ownerNdId && a.enabled == b.enabled &&
         a.deleting == b.deleting && a.stayOn == b.stayOn &&
         std::equal(a.profiles.begin(), a.profiles.end(), b.profiles.begin(), b.profiles.end(), SameProfile);
}

bool CameraRings::Attach(const CameraRecord& camera) {
  m_VideoType = camera.videoType;
  m_Video.clear();
  m_Audio.clear();
  for (const RingPlan& plan : PlanRings(camera)) {
    std::vector<RingWriter>& rings = plan.id.kind == RingKind::kVideo ? m_Video : m_Audio;
    rings.push_back(RingWriter::Attach(plan.id));
    if (!rings.back().IsValid()) return false;
  }
  return !m_Video.empty();
}

bool CameraRings::Write(const void* data, std::size_t size, bool key, std::int64_t arrivedUs) {
  bool fits = true;
  m_WasLost = false;
  for (RingWriter& ring : m_Video) {
    const int seq = ring.Write(data, size, key ? FRAME_FLAG_KEY : 0, arrivedUs, m_VideoType);
    fits = seq >= 0 && fits;
    m_WasLost = seq <= 0 || m_WasLost;
  }
  return fits;
}

// Each entry is marked as one that a reader can begin with: sound depends on nothing before it.
void CameraRings::WriteSound(const void* data, std::size_t size, std::int64_t arrivedUs) {
  for (RingWriter& ring : m_Audio) ring.Write(data, size, FRAME_FLAG_KEY, arrivedUs, 0);
}

bool CameraRings::SetExtra(const void* data, std::size_t size) {
  bool fits = true;
  for (RingWriter& ring : m_Video) fits = ring.SetExtra(data, size) && fits;
  return fits;
}

void CameraRings::SetState(SourceState state, const std::string& reason) {
  for (RingWriter& ring : m_Video) ring.SetState(state, reason);
  for (RingWriter& ring : m_Audio) ring.SetState(state, reason);
}

bool CameraRings::IsWatched(std::int64_t withinUs) const {
  return std::any_of(m_Video.begin(), m_Video.end(),
                     [withinUs](const RingWriter& ring) { return ring.IsWatched(withinUs); });
}

void CameraRings::WaitForViewer() {
  // Only one ring can be slept on; viewers of the others are seen within half a second.
  m_Video.front().WaitForViewer(m_Video.size() == 1 ? 5000 : 500);
}

}  // namespace oculora
