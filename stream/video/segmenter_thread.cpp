// The segmenter thread of a remux process, and its end.
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

#include "pipe_guard.h"
#include "segmenter_library.h"
#include "videoStreaming.h"
#include "video_unit.h"

namespace {

constexpr char kFFmpegH264Remux[] = "FFmpegH264Remux";
constexpr int kJoinPollUs = 10000;
constexpr int kJoinPolls = 300;

}  // namespace

void* VideoStreamingHandler::FFmpegH264Remux(void* handler) {
  static_cast<VideoStreamingHandler*>(handler)->RunSegmenter();
  // A remux without its segmenter serves nobody: it ends as on a Close, and the next Open starts afresh.
  kill(getpid(), SIGINT);
  return nullptr;
}

void VideoStreamingHandler::RunSegmenter() {
  QM_LOG_AS(kFFmpegH264Remux, LOG_LEVEL_DEBUG, "Cam[%d]: Thread start.\n", m_CamId);
  const SegmenterCalls* const calls = LoadSegmenter();
  if (calls == nullptr) return;
  calls->init();

  QM_LOG_AS(kFFmpegH264Remux, LOG_LEVEL_DEBUG, "Cam[%d]: Start open %s.\n", m_CamId, m_FifoPath.c_str());
  int error = (m_Segmenter.*calls->openInputFile)(InRemuxDir(m_FifoPath));
  if (error != SEGMENTER_OK) {
    QM_LOG_AS(kFFmpegH264Remux, LOG_LEVEL_ERROR, "Cam[%d]: Failed to open %s. err = %d.\n", m_CamId, m_FifoPath.c_str(),
              error);
    return;
  }
  QM_LOG_AS(kFFmpegH264Remux, LOG_LEVEL_DEBUG, "Cam[%d]: End open %s.\n", m_CamId, m_FifoPath.c_str());

  error = (m_Segmenter.*calls->openOutputFile)(InRemuxDir(m_SlicePathFmt));
  if (error != SEGMENTER_OK) {
    QM_LOG_AS(kFFmpegH264Remux, LOG_LEVEL_ERROR, "Cam[%d]: Failed to open %s. err = %d.\n", m_CamId,
              m_SlicePathFmt.c_str(), error);
    return;
  }
  error = (m_Segmenter.*calls->startTransCode)(InRemuxDir(m_M3u8Path), m_SliceUrlPrefix.c_str(), m_ProfileParam);
  if (error != SEGMENTER_OK)
    QM_LOG_AS(kFFmpegH264Remux, LOG_LEVEL_ERROR, "Cam[%d]: Failed to transcode. err = %d.\n", m_CamId, error);
}

// In a request process there is no thread. In a remux the segmenter may still stand in open(2) of the pipe. One that
// hangs elsewhere (a disk that does not answer) is left to the end of the process, which follows.
void VideoStreamingHandler::FFmpegThreadStop() {
  m_Segmenter.StopTransCode();
  if (m_FfmpegThread == 0) return;
  for (int i = 0; i < kJoinPolls && pthread_tryjoin_np(m_FfmpegThread, nullptr) == EBUSY; ++i) {
    PipeGuard::WakeReader();
    usleep(kJoinPollUs);
  }
  m_FfmpegThread = 0;
}
