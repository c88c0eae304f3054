// Live view of cameras whose stream browsers cannot show as pictures: the latest key frame, decoded and compressed to
// JPEG, a few times a second at most.
extern "C" {
#include <libavutil/pixfmt.h>  // the name of a pixel format; nothing of the library is called here
}

#include <cstdio>

#include "attached_ring.h"
#include "picture_buffer.h"
#include "velm/media.h"
#include "velm/timing.h"
#include "velm/writers.h"
#include "videoStreaming.h"
#include "video_unit.h"

namespace {

constexpr int kPassUs = 300000;
constexpr int kPassesBetweenChecks = 3;
constexpr int kExtraBytes = 1024;
constexpr int kWidest = 640;

// The codec extra data as last read. `size` is not set back to the capacity between reads, so extra data that grows
// while a view runs is cut to its first length; streams that change repeat it in their key frames.
struct CodecExtra {
  unsigned char data[kExtraBytes];
  int size = kExtraBytes;
};

// Brings the decoded picture to the width of a preview and compresses it to g_Picture.
bool Compress(FFmpegAttr& attr, unsigned char*& rgb, int& jpegSize) {
  int width = 0;  // with height 0: as decoded
  int height = 0;
  int rgbSize = 0;
  if (attr.width > kWidest) {
    width = kWidest;
    height = attr.height * kWidest / attr.width;
  }
  return DoFFMpegScale(attr, rgb, rgbSize, width, height, AV_PIX_FMT_RGB24) == 0 &&
         EncodeToJpeg(width, height, rgb, g_Picture, kPictureBytes, jpegSize, -1) == 0;
}

}  // namespace

void VideoStreamingHandler::LiveviewMpeg4CamByMjpg() {
  m_StmUpdater.StartLive();
  AttachedRing ring(LiveStreamFifoAt(m_CamId, m_StreamNo));
  if (!ring) {
    QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: Failed to attach live stream buf\n", m_CamId);
    PrintPlainText("Failed to view camera");
    return;
  }
  MultipartResponse response;
  DelayTimer timer(kPassUs);
  ring->StartRead(ring.info);
  timer.BeginTiming();

  CodecExtra extra;
  int last = kSeqNone;
  for (int passes = 0; IsOutputOpen() && g_StopFlag == 0; timer.Delay()) {
    m_StmUpdater.UpdateStamp();
    if (!MayGoOn(__func__, passes, kPassesBetweenChecks)) break;
    int seq = last;
    int size = kPictureBytes;
    ring->ReadLatestIFrame(seq, g_RawFrame, size, ring.info);
    if (size == 0 || seq == last) continue;
    ring->GetExtra(extra.data, extra.size);
    const int jpegSize = CopyJpegFromMpeg4(g_RawFrame, size, extra.data, extra.size);
    if (jpegSize > 0) {
      response.Write("image/jpeg", g_Picture, jpegSize, nullptr, nullptr);
      fflush(stdout);
    } else {
      QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: Failed to compress image.\n", m_CamId);
    }
    last = seq;
  }
}

int VideoStreamingHandler::CopyJpegFromMpeg4(const unsigned char* frame, int frameSize, const unsigned char* extra,
                                             int extraSize) {
  FFmpegAttr attr{};
  unsigned char* rgb = nullptr;
  int jpegSize = 0;
  const bool done = DoFFMpegInitVideo(attr, m_VideoType, extra, extraSize) == 0 &&
                    DoFFMpegDecode(attr, frame, frameSize) == 0 && Compress(attr, rgb, jpegSize);
  DoFFMpegFree(attr, rgb);
  return done ? jpegSize : -1;
}
