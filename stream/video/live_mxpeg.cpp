// Live view of MxPEG cameras: key and delta pictures as they came, stamped with the ring's time, each with the sound
// that arrived since the one before.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "attached_ring.h"
#include "mxpeg_segments.h"
#include "picture_buffer.h"
#include "sound_track.h"
#include "velm/timing.h"
#include "velm/writers.h"
#include "videoStreaming.h"
#include "video_unit.h"

namespace {

constexpr char kLiveviewMxpegCam[] = "LiveviewMxpegCam";
constexpr int kIdleUs = 10000;
constexpr int kSilentSeconds = 30;
constexpr int kNamedStream = 2;  // by the log line, whichever stream it is

// Brings a frame from the ring to g_Picture; its size there.
int CopyPicture(const unsigned char* data, int size) {
  const int copied = std::min(size, kPictureBytes);
  std::memcpy(g_Picture, data, static_cast<std::size_t>(copied));
  return copied;
}

// Brings the newest key frame to g_Picture; its size, 0 when there is none.
int CopyKeyFrame(AttachedRing& video) {
  const STREAM_ENTRY* entry = video->ReadLatestIFrame(kSeqNone, video.info);
  const unsigned char* data = nullptr;
  int size = 0;
  if (!video->GetValidFrame(entry, data, size)) return 0;
  size = CopyPicture(data, size);
  video->ReadFinish(entry, false, video.info);
  return size;
}

void WritePicture(MultipartResponse& response, int size) {
  response.Write("image/jpeg", g_Picture, size, nullptr, nullptr);
  fflush(stdout);
}

}  // namespace

void VideoStreamingHandler::LiveviewMxpegCam() {
  const time_t start = time(nullptr);
  MultipartResponse response;
  m_StmUpdater.StartLive();
  AttachedRing video(LiveStreamFifoAt(m_CamId, m_StreamNo));
  if (!video) {
    QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: Failed to attach CAM_STM[%d] stream buf.\n", m_CamId, kNamedStream);
    PrintPlainText("Failed to view camera.");
    return;
  }
  SoundTrack sound(LiveAdoStreamFifoAt(m_CamId, m_StreamNo));
  if (!sound) {
    QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: Failed to attach live stream buf.\n", m_CamId);
    PrintPlainText("Failed to view camera");
    return;
  }
  video->StartRead(video.info);
  sound.Start();
  const int size = CopyKeyFrame(video);
  if (size < 1) {
    QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: Failed to get live stream data.\n", m_CamId);
    PrintPlainText("Failed to view camera");
    return;
  }
  WritePicture(response, size);
  PlayMxpeg(response, video, sound, start);
}

// Delta pictures change the picture before them, so after a loss they wait for the next key frame.
void VideoStreamingHandler::PlayMxpeg(MultipartResponse& response, AttachedRing& video, SoundTrack& sound,
                                      time_t lastWrite) {
  DelayTimer idle(kIdleUs);  // in place of a sleep of this length: it wakes once a picture
  idle.BeginTiming();
  int seq = kSeqNone;
  bool chained = false;
  while (IsOutputOpen() && g_StopFlag == 0) {
    m_StmUpdater.UpdateStamp();
    const STREAM_ENTRY* entry = video->ReadNext(seq, video.info);
    const unsigned char* data = nullptr;
    int size = 0;
    if (!video->GetValidFrame(entry, data, size)) {
      video->ReadFinish(entry, true, video.info);
      if (IsSilentFor(lastWrite)) break;
      idle.Delay();
      continue;
    }
    const STREAM_ENTRY frame = *entry;
    if (frame.seq - 1 != seq) {
      chained = false;
      sound.Resync();
    }
    size = CopyPicture(data, size);
    StampPicture({g_Picture, static_cast<std::size_t>(size)}, frame.timestamp);
    video->ReadFinish(entry, true, video.info);
    seq = frame.seq;
    if ((frame.flags & FRAME_FLAG_KEY) == 0 && !chained) {
      if (IsSilentFor(lastWrite)) break;
      usleep(kIdleUs);
      continue;
    }
    lastWrite = time(nullptr);
    WritePicture(response, sound.AppendTo(size, frame.timestamp));
    chained = true;
  }
}

bool VideoStreamingHandler::IsSilentFor(time_t lastWrite) const {
  if (difftime(time(nullptr), lastWrite) <= kSilentSeconds) return false;
  QM_LOG_AS(kLiveviewMxpegCam, LOG_LEVEL_ERROR, "Cam[%d]: get video data from VdoStmFifo more than %d secs.\n", m_CamId,
            kSilentSeconds);
  return true;
}
