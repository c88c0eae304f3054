// Starting and ending a camera's remux process.
//
// The child works in the remux directory as its working directory and names its files relative to it. A directory that
// a later remux made under the same name is therefore out of reach for a child that ends late.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "remux_lock.h"
#include "velm/file.h"
#include "velm/process.h"
#include "videoStreaming.h"
#include "video_unit.h"

namespace {

constexpr char kRunFfmpegRemux[] = "RunFfmpegRemux";
constexpr std::size_t kUrlBytes = 4096;
constexpr int kPlaylistPolls = 100;
constexpr int kPlaylistPollUs = 200000;
constexpr off_t kPlaylistBytes = 200;

bool HasPlaylist(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && info.st_size >= kPlaylistBytes;
}

// Lets go of the request: its answer ends when its own work ends. What stdio still holds is the request's to write.
// Numbers 1 and 2 are then taken by descriptors that cannot be written to, lest a stray message land in a slice.
void LeaveRequest() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) close(fd);
  const int first = open("/", O_PATH | O_CLOEXEC);
  open("/", O_PATH | O_CLOEXEC);
  open("/", O_PATH | O_CLOEXEC);
  close(first);
}

// The process that a pid file names; 0 when there is none.
int NamedPid(const char* path) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path, "re"), fclose);
  int pid = 0;
  return file != nullptr && fscanf(file.get(), "%d", &pid) == 1 ? pid : 0;
}

}  // namespace

int VideoStreamingHandler::SetupFfmpegRemux(bool relayed) {
  if (QmRm(m_M3u8Path) != 0) QM_LOG_ALWAYS(__func__, "Fail to remove file.[%s]\n", m_M3u8Path.c_str());
  m_StmUpdater.StartLive();
  m_ShmAddr = LiveStreamFifoAt(m_CamId, m_StreamNo);
  if (m_ShmAddr == nullptr) {
    QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: Failed to attach live stream buf.\n", m_CamId);
    m_pResponse->SetError(kErrNoMedia, Json::Value());
    return -1;
  }
  const int camId = relayed ? m_pRequest->GetParam("CamIdOnHost", 0).asInt() : m_CamId;
  const std::string sid = relayed ? m_pRequest->GetParam("SID", "").asString() : m_pRequest->GetSessionID();
  char url[kUrlBytes];
  const int length =
      snprintf(url, sizeof(url),
               "__HTTPHOST_PREFIX__/webapi/entry.cgi?api=VELM.Oculora.Stream.VideoStreaming&method=Stream&version=1"
               "%s%s&cameraId=%d&isRedirectCgi=%d&SliceId=",
               sid.empty() ? "" : "&_sid=", sid.c_str(), camId, relayed ? 1 : 0);
  if (length < 0 || static_cast<std::size_t>(length) >= sizeof(url)) return -1;
  // The segmenter adds a slice's file name; with the directory before it, serving finds the file.
  m_SliceUrlPrefix = url + std::to_string(m_CamId) + "/";
  return 0;
}

int VideoStreamingHandler::RunFfmpegRemux() {
  if (SetupSignalHandler() != 0) {
    QM_LOG(LOG_LEVEL_FATAL, "Failed to setup signal handler\n");
    return -1;
  }
  signal(SIGCHLD, SIG_IGN);  // nobody waits for the remux
  const int dir = open(m_HlsDir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  const pid_t child = fork();
  if (child == 0) BecomeRemux(dir);
  if (dir >= 0) close(dir);
  RemuxLock::Leave();  // the child keeps its share until it has a pid file
  if (child < 0) {
    QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: Fail to fork for ffmpeg\n", m_CamId);
    return -1;
  }
  for (int i = 0; i < kPlaylistPolls && g_StopFlag == 0 && !HasPlaylist(m_M3u8Path); ++i) usleep(kPlaylistPollUs);
  return 0;
}

void VideoStreamingHandler::BecomeRemux(int dir) {
  setsid();
  g_DbgLogPid = 0;  // the request's, if it was asked for
  signal(SIGPIPE, SIG_IGN);
  // The lock does not hold for ever: when this process was stopped, another remux may have taken the place.
  const bool current = fchdir(dir) == 0 && IsRemuxDirOwn();
  close(dir);
  const bool listed = current && CreatePidFile(m_PidFilePath) == 0;
  RemuxLock::Leave();
  if (listed) {
    LeaveRequest();
    OutputH264Data();
  } else if (current) {
    QM_LOG_AS(kRunFfmpegRemux, LOG_LEVEL_ERROR, "Cam[%d]: Failed to create Pid File\n", m_CamId);
  }
  const RemuxLock lock(m_CamId);
  if (NamedPid(m_PidFilePath) == getpid() && QmRm(m_PidFilePath) != 0) {
    QM_LOG_AS(kRunFfmpegRemux, LOG_LEVEL_ERROR, "Failed to remove file [%s]\n", m_PidFilePath);
  }
  _exit(0);
}

// From here on an Open starts a new remux instead of joining one that ends.
void VideoStreamingHandler::Unlist() {
  const RemuxLock lock(m_CamId);
  if (NamedPid(m_PidFilePath) == getpid()) QmRm(m_PidFilePath);
}

bool VideoStreamingHandler::IsRemuxDirOwn() const {
  struct stat named {};
  struct stat own {};
  return stat(m_HlsDir.c_str(), &named) == 0 && stat(".", &own) == 0 && named.st_dev == own.st_dev &&
         named.st_ino == own.st_ino;
}

bool VideoStreamingHandler::OwnsRemux() const {
  const int pid = NamedPid(m_PidFilePath);
  if (pid != 0 && pid != getpid()) return false;
  return IsRemuxDirOwn() || !IsExistDir(m_HlsDir);
}

void VideoStreamingHandler::StopFfmpegRemux(bool force) {
  if (!force) {
    const int users = DecFfmpegRefCnt();
    if (users > 0) {
      QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: %d user(s) remain streaming.\n", m_CamId, users);
      return;
    }
  }
  FFmpegThreadStop();
  if (ProcSignalByPidFile(m_PidFilePath, SIGINT) != 0) {
    QM_LOG(LOG_LEVEL_WARN, "Cam[%d]: Failed to send SIGINT signal to %s.\n", m_CamId, m_PidFilePath);
    // A killed remux leaves its pid file, which would let further Closes believe that there is something to close.
    if (!ProcAliveByPidFile(m_PidFilePath)) QmRm(m_PidFilePath);
  } else if (QmRm(m_PidFilePath) != 0) {
    QM_LOG_ALWAYS(__func__, "Fail to remove file.[%s]\n", m_PidFilePath);
  }
  QmRm(m_HlsDir);
}
