// The reference count of a camera's remux: how many users stream it.
//
// Its file holds one signed decimal and a line end, written from the start without truncating: a shorter number leaves
// the old tail behind the line end, where no reader looks.
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <memory>

#include "velm/file.h"
#include "velm/process.h"
#include "videoStreaming.h"
#include "video_unit.h"

namespace {

constexpr char kCountName[] = "/cnt";
constexpr char kLockName[] = "/file_lock";
constexpr time_t kUntouchedSeconds = 61;
constexpr int kPollUs = 10000;
constexpr int kPolls = 500;

struct FileCloser {
  void operator()(FILE* file) const { fclose(file); }  // lets go of its lock as well
};
using File = std::unique_ptr<FILE, FileCloser>;

// Opens a file and locks it; null when either fails, or when a process that was stopped keeps the lock for seconds.
File OpenLocked(const std::string& path, const char* mode) {
  File file(fopen(path.c_str(), mode));
  if (file == nullptr) return nullptr;
  for (int i = 0; i < kPolls; ++i) {
    if (flock(fileno(file.get()), LOCK_EX | LOCK_NB) == 0) return file;
    if (errno != EWOULDBLOCK && errno != EINTR) break;
    usleep(kPollUs);
  }
  return nullptr;
}

bool ReadCount(FILE* file, int& count) { return fscanf(file, "%d", &count) == 1; }

bool HasNoUsers(const std::string& path) {
  const File file(fopen(path.c_str(), "re"));
  int count = 0;
  return file != nullptr && ReadCount(file.get(), count) && count <= 0;
}

void WriteCount(FILE* file, int count) {
  rewind(file);
  fprintf(file, "%d\n", count);
  fflush(file);
}

}  // namespace

// Ends a remux whose process is dead, or lives untouched (nobody fetched a slice and it did not notice), or that its
// last user left without stopping it, because that Close was killed half-way.
void VideoStreamingHandler::StopStaleRemux() {
  if (ProcAliveByPidFile(m_PidFilePath)) {
    struct stat info {};
    const bool untouched = stat(m_PidFilePath, &info) == 0 && time(nullptr) - info.st_mtime >= kUntouchedSeconds;
    if (!untouched && !HasNoUsers(m_HlsDir + kCountName)) return;
  }
  StopFfmpegRemux(true);
}

int VideoStreamingHandler::IncFfmpegRefCnt() {
  const std::string lockPath = m_HlsDir + kLockName;
  const std::string countPath = m_HlsDir + kCountName;
  StopStaleRemux();

  const bool first = !IsExistDir(m_HlsDir) && CreateDirP(m_HlsDir, "", false) == 0;
  if (first) QmTouch(countPath);
  const File lock = OpenLocked(lockPath, "we");
  if (lock == nullptr) return -1;
  const File file(fopen(countPath.c_str(), "r+e"));
  if (file == nullptr) return -1;
  int count = 1;
  if (!first) {
    if (!ReadCount(file.get(), count)) return -1;
    ++count;
  }
  WriteCount(file.get(), count);
  return count;
}

// Locks the count file itself, not the lock file of the increment: the two do not exclude each other, as other parts of
// the system expect. What keeps a Close and an Open of this module apart is RemuxLock.
int VideoStreamingHandler::DecFfmpegRefCnt() {
  const File file = OpenLocked(m_HlsDir + kCountName, "r+e");
  int count = 0;
  if (file == nullptr || !ReadCount(file.get(), count)) return -1;
  --count;
  WriteCount(file.get(), count);
  return count;
}
