// The process that records one camera.
#include "recorder/recording/recording_process.h"

#include <sys/prctl.h>

#include <csignal>
#include <cstdio>
#include <optional>

#include "recorder/av/quiet_log.h"
#include "recorder/camera_rings.h"
#include "recorder/clock.h"
#include "recorder/recorder_log.h"
#include "recorder/recording/camera_recorder.h"
#include "recorder/recording/recording_lock.h"
#include "recorder/recording/recovery.h"

namespace oculora {
namespace {

constexpr int kLockMs = 5000;
constexpr int kPassMs = 200;
constexpr std::int64_t kDrainUs = 1500000;
constexpr int kStopMs = 4500;  // both together less than the supervisor grants

volatile std::sig_atomic_t g_Stop = 0;

void OnStop(int) { g_Stop = 1; }

void InstallSignals() {
  struct sigaction action {};
  action.sa_handler = OnStop;
  action.sa_flags = SA_RESTART;  // the files of the last seconds are written to the end
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);  // a file that gets too long is a failed write
}

int Fail(int camId, const std::string& why) {
  LogError("camera %d cannot be recorded: %s", camId, why.c_str());
  return 1;
}

// What arrived before the end is still written, provided the disk takes it soon.
void Drain(CameraRecorder& recorder, FrameFeed& feed) {
  const std::int64_t untilUs = MonotonicUs() + kDrainUs;
  while (MonotonicUs() < untilUs) {
    const FeedFrame* frame = feed.Next(0);
    if (frame == nullptr) return;
    recorder.Write(*frame, MonotonicUs());
    feed.Release();
  }
}

void Record(const CameraRecord& camera, FrameFeed& feed) {
  CameraRecorder recorder(camera, feed);
  for (;;) {
    recorder.Tick(MonotonicUs());
    if (g_Stop || recorder.IsDone()) break;
    if (const FeedFrame* frame = feed.Next(kPassMs)) {
      recorder.Write(*frame, MonotonicUs());
      feed.Release();
    }
  }
  Drain(recorder, feed);
  recorder.Stop(kStopMs);
}

}  // namespace

int RunRecording(int camId) {
  InstallSignals();
  QuietFfmpegLog();
  char name[16];
  std::snprintf(name, sizeof(name), "record-%d", camId);
  prctl(PR_SET_NAME, name);

  RecordingLock lock;
  if (!lock.Lock(camId, kLockMs)) return Fail(camId, "another process looks after its recordings");
  std::optional<CameraRecord> camera;
  {
    std::string error;
    auto records = Database::Open(Database::Mode::kReadWrite, &error);
    if (!records) return Fail(camId, error);
    camera = records->LoadCamera(camId);
    if (!camera) return Fail(camId, records->LastError().empty() ? "there is no such camera" : records->LastError());
    RecoverCamera(*records, camId, [](const std::string& sentence) { LogInfo("%s", sentence.c_str()); });
  }
  const std::vector<RingPlan> rings = PlanRings(*camera);
  if (rings.empty()) return Fail(camId, "another recording server owns it");
  // Half of the ring at most, so that there is always room for what live views want to see next.
  FrameFeed feed(camId, rings.front().id.streamNo, rings.front().bytes / 2);
  if (!feed.Start()) return Fail(camId, "its ring is missing");
  Record(*camera, feed);
  return 0;
}

}  // namespace oculora
