// The feeder: body of the remux process. Copies a camera's frames from its ring into the segmenter's pipe.
//
// Files are named relative to the remux directory, in which the process works.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "pipe_guard.h"
#include "remux_lock.h"
#include "velm/timing.h"
#include "videoStreaming.h"
#include "video_unit.h"

namespace {

constexpr char kOutputH264Data[] = "OutputH264Data";
constexpr char kInitFfmpegH264[] = "InitFfmpegH264";
constexpr int kFrameBytes = 4194304;
constexpr mode_t kPipeMode = 0777;
constexpr int kPipeBytes = 256 * 1024;  // a key frame of most cameras fits whole
constexpr int kIdleUs = 10000;
constexpr int kFirstFrameIdleUs = 30000;
constexpr int kPipePollMs = 1000;
constexpr double kSilentSeconds = 30.0;
constexpr double kUntouchedSeconds = 60.0;
constexpr std::int64_t kCheckSeconds = 60;  // of video, by the declared frame rate

unsigned char g_Frame[kFrameBytes];

// Copies the next frame to g_Frame; its size, at most 0 when none is ready.
int ReadFrame(void* ring, int& cursor, int& flags) {
  int size = kFrameBytes;
  unsigned char* buffer = g_Frame;
  long long timestamp = 0;
  MediaES media{};
  static_cast<ShmStreamFifo*>(ring)->ReadNext(cursor, buffer, size, timestamp, media, flags, false);
  return size;
}

// Signals are the feeder's: in the segmenter they would cut a read short.
int StartThread(pthread_t& thread, void* (*body)(void*), void* argument) {
  sigset_t all;
  sigset_t old;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &old);
  const int result = pthread_create(&thread, nullptr, body, argument);
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  return result;
}

}  // namespace

void VideoStreamingHandler::OutputH264Data() {
  if (mkfifo(InRemuxDir(m_FifoPath), kPipeMode) != 0) {
    QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: Failed to open fifo\n", m_CamId);
    return;
  }
  int cursor = kSeqNone;
  int pipeFd = 0;  // closed at the end even when nothing was opened: descriptor 0 is free then, or the pipe
  const int result = InitFfmpegH264(pipeFd, cursor);
  if (result == 0) {
    FeedPipe(pipeFd, cursor);
  } else {
    QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: Error[%d] to open H264 file.\n", m_CamId, result);
  }
  EndRemux(pipeFd);
}

int VideoStreamingHandler::InitFfmpegH264(int& pipeFd, int& cursor) {
  const int size = WaitForKeyFrame(cursor);
  if (size <= 0) return 1;
  const char* const pipe = InRemuxDir(m_FifoPath);
  // The segmenter first: it opens the reading end, and the first one to open waits for the other.
  const bool guarded = PipeGuard::Hold(pipe);
  if (StartThread(m_FfmpegThread, FFmpegH264Remux, this) != 0) {
    m_FfmpegThread = 0;
    QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: Fail to create ffmpeg thread.\n", m_CamId);
    return 1;
  }
  pipeFd = guarded ? open(pipe, O_WRONLY | O_NONBLOCK | O_CLOEXEC) : -1;
  if (pipeFd < 0) {
    perror("Failed to open pipe.");
    QM_LOG(LOG_LEVEL_ERROR, "Failed to open Pipe [%s].\n", m_FifoPath.c_str());
    return 2;
  }
  fcntl(pipeFd, F_SETPIPE_SZ, kPipeBytes);  // no more allowed: works as well, with more wake-ups
  return WriteFrame(pipeFd, size, time(nullptr)) ? 0 : 1;
}

// Drops frames until the first key frame, which is left in g_Frame. Its size, or 0 when the wait ended without one.
int VideoStreamingHandler::WaitForKeyFrame(int& cursor) {
  const time_t start = time(nullptr);
  time_t lastData = start;
  int size = 0;
  int flags = 0;
  while (IsOutputOpen() && g_StopFlag == 0) {
    const time_t now = time(nullptr);
    m_StmUpdater.UpdateStamp();
    if (difftime(now, start) > kUntouchedSeconds && !IsRemuxWanted()) break;
    size = ReadFrame(m_ShmAddr, cursor, flags);
    if (size > 0) {
      if ((flags & FRAME_FLAG_KEY) != 0) {
        QM_LOG_AS(kInitFfmpegH264, LOG_LEVEL_DEBUG, "InitFfmpegH264(): Got first I-frame!!\n");
        break;
      }
      lastData = now;
    } else if (IsSilent(now, lastData)) {
      break;
    } else {
      QM_LOG_AS(kInitFfmpegH264, LOG_LEVEL_DEBUG, "InitFfmpegH264(): Waiting for I-frame...\n");
      usleep(kFirstFrameIdleUs);
    }
  }
  QM_LOG_AS(kInitFfmpegH264, LOG_LEVEL_DEBUG, "Cam[%d]: Find first I frame. [size:%d]\n", m_CamId, size);
  return size > 0 && (flags & FRAME_FLAG_KEY) != 0 ? size : 0;
}

void VideoStreamingHandler::FeedPipe(int pipeFd, int cursor) {
  const std::int64_t framesPerCheck = kCheckSeconds * m_ProfileParam;
  std::int64_t frames = 0;
  time_t lastData = time(nullptr);
  DelayTimer idle(kIdleUs);
  time_t unlistedSince = 0;  // when the pid file was first missed
  while (IsOutputOpen() && g_StopFlag == 0) {
    const time_t now = time(nullptr);
    int flags = 0;
    m_StmUpdater.UpdateStamp();
    const int size = ReadFrame(m_ShmAddr, cursor, flags);
    if (size <= 0) {
      if (IsSilent(now, lastData)) break;
      Rest(idle);
      continue;
    }
    ++frames;
    if (!WriteFrame(pipeFd, size, now)) break;
    if (frames > framesPerCheck) {
      if (!IsRemuxWanted()) break;
      struct stat info {};
      if (stat(m_PidFilePath, &info) == 0) {
        frames = 0;
        unlistedSince = 0;
      } else if (unlistedSince == 0) {
        unlistedSince = now;  // and the check is repeated on the next frame
      } else if (difftime(now, unlistedSince) > kUntouchedSeconds) {
        break;  // nobody could find this remux any more, to close it
      }
    }
    lastData = now;
  }
}

// Until the first slice is listed an Open waits for it. Afterwards players are seconds behind, and the host may let a
// few frames gather: the two threads then wake less often, which halves what a remux costs.
void VideoStreamingHandler::Rest(DelayTimer& idle) const {
  if (access(InRemuxDir(m_M3u8Path), F_OK) != 0) {
    usleep(kIdleUs);
  } else {
    idle.BeginTiming();
    idle.Delay();
  }
}

// Writes the frame in g_Frame, as a rule with one write. Waits while the pipe is full, so that a slow disk loses
// nothing, but not for ever: a segmenter that hangs counts as a camera silent since `lastData`. False when the remux is
// to end.
bool VideoStreamingHandler::WriteFrame(int pipeFd, int size, time_t lastData) {
  for (int done = 0; done < size && g_StopFlag == 0;) {
    const ssize_t written = write(pipeFd, g_Frame + done, static_cast<std::size_t>(size - done));
    if (written >= 0) {
      done += static_cast<int>(written);
    } else if (errno != EAGAIN && errno != EINTR) {
      break;  // a segmenter that died ends the remux by itself
    } else {
      m_StmUpdater.UpdateStamp();
      pollfd out{pipeFd, POLLOUT, 0};
      poll(&out, 1, kPipePollMs);
      if (IsSilent(time(nullptr), lastData)) return false;
    }
  }
  return true;
}

bool VideoStreamingHandler::IsSilent(time_t now, time_t lastData) const {
  if (difftime(now, lastData) <= kSilentSeconds) return false;
  QM_LOG_AS(kOutputH264Data, LOG_LEVEL_ERROR, "Cam[%d]: No data timeout break\n", m_CamId);
  return true;
}

// Whether somebody may still fetch slices: each request for one touches the pid file. A remux whose directory was
// removed or replaced serves nobody, whatever the pid file of its successor says.
bool VideoStreamingHandler::IsRemuxWanted() const {
  struct stat info {};
  const bool untouched = stat(m_PidFilePath, &info) == 0 && difftime(time(nullptr), info.st_mtime) > kUntouchedSeconds;
  if (!untouched && IsRemuxDirOwn()) return true;
  QM_LOG_AS(kOutputH264Data, LOG_LEVEL_ERROR, "Cam[%d]: NO ACCESS break\n", m_CamId);
  return false;
}

// The pipe goes first: the segmenter then reads the end of its input and finishes the playlist.
void VideoStreamingHandler::EndRemux(int pipeFd) {
  Unlist();
  if (pipeFd >= 0) close(pipeFd);
  if (m_ShmAddr != nullptr) {
    shmdt(m_ShmAddr);
    m_ShmAddr = nullptr;
  }
  FFmpegThreadStop();  // before the lock, under which others wait
  PipeGuard::Release();
  const RemuxLock lock(m_CamId);
  if (OwnsRemux()) StopFfmpegRemux(true);  // else a newer remux owns everything by now
}
