// Playing an event as paced JPEG frames whose rate the client may change meanwhile.
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "event_unit.h"
#include "pacing.h"
#include "streaming.h"
#include "velm/event.h"
#include "velm/file.h"
#include "velm/media.h"
#include "velm/timing.h"
#include "velm/writers.h"

namespace {

constexpr unsigned kFrameBytes = 4194304;
constexpr int kNoChange = -1;  // what a progress cell holds that nobody set
// A newer player signals before it writes the pid file, and may be slow in between.
constexpr int kOwnerLooks = 3;

struct Freer {
  void operator()(unsigned char* memory) const { free(memory); }
};

// What follows a frame: the cell gets its number, or says which rate the client wants now. False ends the loop.
bool FollowProgress(ProgressIndicator& progress, bool changeRate, std::int64_t frame, float frameRate, int& rate,
                    DelayTimer& timer) {
  if (!changeRate) {
    if (progress.Set(static_cast<int>(frame)) == 0) return true;
    QM_LOG_ALWAYS("StreamOut", "Fail to write event play progress.\n");
    return false;
  }
  const int wanted = progress.Get();
  if (wanted == rate || wanted == kNoChange) return true;
  timer.SetDelayTime(IntervalUs(frameRate, wanted));
  rate = wanted;
  return true;
}

}  // namespace

struct EventPlayback {
  explicit EventPlayback(long long timestamp) : progress(timestamp, true, true) {}

  JpegExtractor extractor;
  ProgressIndicator progress;
  MultipartResponse response;
};

int StreamingHandler::PlayEvent(const Event& event, int frameStart, int frameStop, long long timestamp, int rate,
                                bool changeRate) {
  std::string path;
  unsigned long long size = 0;
  if (GetEventFullPathAndSize(event, path, size) != 0) {
    QM_LOG_ALWAYS(__func__, "Get event play full path failed.\n");
    return -1;
  }
  if (!IsFileExist(path, false)) {
    QM_LOG_ALWAYS(__func__, "File[%s] not exist.\n", path.c_str());
    return -1;
  }
  EventPlayback playback(timestamp);
  __tag_JPEG_FRAME_INFO info{};
  const bool readable =
      playback.extractor.Init(path) == 0 && playback.extractor.GetFrameInfo(info) == 0 && info.frameRate > 0.0F;
  if (frameStart > frameStop) frameStop = info.frameCount - 1;
  if (!readable || StreamOut(playback, {frameStart, frameStop, info.frameRate}, rate, changeRate) != 0) {
    QM_LOG_ALWAYS(__func__, "Failed to extract record file.\n");
    return -1;
  }
  return 0;
}

int StreamingHandler::StreamOut(EventPlayback& playback, const PlayRange& range, int rate, bool changeRate) {
  const std::unique_ptr<unsigned char, Freer> buffer(static_cast<unsigned char*>(malloc(kFrameBytes)));
  if (!buffer) {
    QM_LOG_ALWAYS(__func__, "Alloc buffer failed!\n");
    return -1;
  }
  if (changeRate) playback.progress.Set(rate);
  DelayTimer timer(IntervalUs(range.frameRate, rate));
  timer.BeginTiming();
  int looks = 0;
  for (std::int64_t frame = range.first; frame <= range.last && gStopPlay == 0;) {
    unsigned size = kFrameBytes;
    if (playback.extractor.ReadFrame(static_cast<unsigned>(frame), buffer.get(), size) != 0) break;
    playback.response.Write("image/jpeg", buffer.get(), static_cast<int>(size), nullptr, nullptr);
    if (!FollowProgress(playback.progress, changeRate, frame, range.frameRate, rate, timer)) break;
    if (gPidFileSignalled != 0) looks = kOwnerLooks;
    if (looks > 0 && CheckPidFileOwner() != 0) break;
    if (looks > 0) --looks;
    frame = NextFrame(frame, rate);
    if (gStopPlay == 0) timer.Delay();  // a stop must not wait for a slow rate
  }
  return 0;
}

// SIGUSR1 alone never stops a player: it only makes it look who owns the pid file.
int StreamingHandler::CheckPidFileOwner() {
  if (gSessionId.empty()) return -1;
  char path[PATH_MAX];
  snprintf(path, sizeof(path), "%s.%s", kPlayerPidFile, gSessionId.c_str());
  FILE* file = fopen(path, "re");
  if (file == nullptr) return -1;
  int pid = 0;
  if (fscanf(file, "%d", &pid) == 1 && pid == getpid()) {
    gPidFileSignalled = 0;
  } else {
    gStopPlay = 1;
    gPidFileSignalled = 1;  // the file is the other player's to remove
  }
  fclose(file);
  return 0;
}
