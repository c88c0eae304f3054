// Which rings a camera gets, and which changes of its record need a new worker.
#include "recorder/camera_rings.h"

#include <gtest/gtest.h>
#include <velm/camera.h>

namespace oculora {
namespace {

CameraRecord MakeCamera(int videoType) {
  CameraRecord camera;
  camera.id = 7;
  camera.name = "Door";
  camera.videoType = videoType;
  camera.source = "test:";
  camera.profiles = {{0, 1, 25, 1920, 1080}, {1, 1, 25, 1280, 720}, {2, 2, 10, 640, 360}};
  return camera;
}

TEST(PlanRings, OneAStreamTheMobileOneFirst) {
  const auto streams = [](const CameraRecord& camera) {
    std::vector<std::pair<int, RingKind>> found;
    for (const RingPlan& plan : PlanRings(camera)) found.emplace_back(plan.id.streamNo, plan.id.kind);
    return found;
  };
  using Rings = std::vector<std::pair<int, RingKind>>;
  EXPECT_EQ(streams(MakeCamera(VIDEO_TYPE_H264)), (Rings{{2, RingKind::kVideo}, {1, RingKind::kVideo}}));
  CameraRecord sound = MakeCamera(VIDEO_TYPE_MXPEG);
  sound.profiles.clear();
  EXPECT_EQ(streams(sound), (Rings{{0, RingKind::kVideo}, {0, RingKind::kAudio}}));
  CameraRecord remote = MakeCamera(VIDEO_TYPE_H264);
  remote.ownerNdId = 3;
  EXPECT_TRUE(PlanRings(remote).empty());
}

TEST(PlanRings, EveryRingTakesTheLargestFrameSeveralTimes) {
  for (const int type : {VIDEO_TYPE_MJPEG, VIDEO_TYPE_MPEG4, VIDEO_TYPE_H264, VIDEO_TYPE_MXPEG}) {
    for (const RingPlan& plan : PlanRings(MakeCamera(type))) {
      const std::size_t least = plan.id.kind == RingKind::kVideo ? 2 * kMaxFrameBytes : 0;
      EXPECT_GE(plan.bytes, least);
    }
  }
}

TEST(SameSetup, OnlyANewNameKeepsTheWorker) {
  const CameraRecord camera = MakeCamera(VIDEO_TYPE_H264);
  CameraRecord renamed = camera;
  renamed.name = "Gate";
  EXPECT_TRUE(SameSetup(camera, renamed));
  const auto differs = [&camera](auto change) {
    CameraRecord other = camera;
    change(other);
    return !SameSetup(camera, other);
  };
  EXPECT_TRUE(differs([](CameraRecord& c) { c.source += "640x360"; }));
  EXPECT_TRUE(differs([](CameraRecord& c) { c.videoType = VIDEO_TYPE_MJPEG; }));
  EXPECT_TRUE(differs([](CameraRecord& c) { c.enabled = false; }));
  EXPECT_TRUE(differs([](CameraRecord& c) { c.deleting = true; }));
  EXPECT_TRUE(differs([](CameraRecord& c) { c.stayOn = true; }));
  EXPECT_TRUE(differs([](CameraRecord& c) { c.profiles[2].fps = 5; }));
  EXPECT_TRUE(differs([](CameraRecord& c) { c.profiles.pop_back(); }));
}

}  // namespace
}  // namespace oculora
