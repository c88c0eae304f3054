// Live view of MJPEG cameras: pictures pass from the ring to the client as they came.
#include <cstdio>

#include "attached_ring.h"
#include "velm/timing.h"
#include "velm/writers.h"
#include "videoStreaming.h"
#include "video_unit.h"

namespace {

constexpr int kPassUs = 10000;
constexpr int kPassesBetweenChecks = 100;

}  // namespace

void VideoStreamingHandler::LiveviewMjpgCam() {
  m_StmUpdater.StartLive();
  AttachedRing ring(LiveStreamFifoAt(m_CamId, m_StreamNo));
  if (!ring) {
    QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: Failed to attach live stream buf.\n", m_CamId);
    PrintPlainText("Failed to view camera.");
    return;
  }
  MultipartResponse response;
  DelayTimer timer(kPassUs);
  ring->StartRead(ring.info);
  timer.BeginTiming();

  int seq = kSeqNone;
  for (int passes = 0; IsOutputOpen() && g_StopFlag == 0;) {
    m_StmUpdater.UpdateStamp();
    if (!MayGoOn(__func__, passes, kPassesBetweenChecks)) break;
    const STREAM_ENTRY* entry = ring->ReadLatest(seq, ring.info);
    const unsigned char* data = nullptr;
    int size = 0;
    if (ring->GetValidFrame(entry, data, size)) {
      seq = entry->seq;
      // Straight from the ring: the entry is pinned until ReadFinish, however slow the client is.
      response.Write("image/jpeg", data, size, nullptr, nullptr);
      fflush(stdout);
    }
    ring->ReadFinish(entry, true, ring.info);
    timer.Delay();
  }
}
