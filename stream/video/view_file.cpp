// The hand-over between views of one login session.
//
// A view is a browser page; its time stamp names it. The view file of a session holds the time stamp of its newest view
// and, a line each, the pids of the processes that stream for it. A new time stamp ends the older view at once.
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "process_start.h"
#include "velm/file.h"
#include "videoStreaming.h"
#include "video_unit.h"

namespace {

constexpr char kViewFile[] = "/tmp/liveview_src.pid";
constexpr char kLockDir[] = "/tmp/ndcam/";
constexpr char kLockFile[] = "/tmp/ndcam/file_lock";
constexpr std::size_t kViewFileName = 128;

struct FileCloser {
  void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

// Kills the processes listed from the current position on. Pids that name nobody's stream are skipped: init and
// process groups, this process, and a pid that was handed out again after the file was last written.
void KillListed(FILE* file) {
  int pid = 0;
  while (fscanf(file, "%d\n", &pid) == 1) {
    if (pid <= 1 || pid == getpid() || StartedAfterLastWrite(pid, fileno(file))) continue;
    kill(pid, SIGKILL);
  }
}

// Joins the view that the locked file names, or replaces it.
void JoinOrReplace(FILE* file, long timestamp) {
  long stored = 0;
  if (fscanf(file, "%ld", &stored) != 1) {
    stored = 0;
    QM_LOG_AS("CheckTimeStamp", LOG_LEVEL_FATAL, "Failed to read TimeStampOri.\n");
  }
  if (stored == timestamp) {
    fseek(file, 0, SEEK_END);
    fprintf(file, "%d\n", getpid());
    return;
  }
  KillListed(file);
  if (ftruncate(fileno(file), 0) != 0) QM_LOG_AS("CheckTimeStamp", LOG_LEVEL_ERROR, "Failed to truncate view file.\n");
  rewind(file);
  fprintf(file, "%ld\n%d\n", timestamp, getpid());
}

int UpdateViewFile(const char* path, long timestamp) {
  const File file(fopen(path, "r+e"));
  if (file == nullptr) return -1;
  if (flock(fileno(file.get()), LOCK_EX) != 0) return 0;  // streams all the same, unlisted
  JoinOrReplace(file.get(), timestamp);
  fflush(file.get());  // written before the lock goes
  flock(fileno(file.get()), LOCK_UN);
  return 0;
}

int CreateViewFile(const char* path, long timestamp) {
  const File file(fopen(path, "we"));
  if (file == nullptr) return -1;
  fprintf(file.get(), "%ld\n%d\n", timestamp, getpid());
  return 0;
}

}  // namespace

int VideoStreamingHandler::CheckTimeStamp(const char* sid, long timestamp) {
  if (sid == nullptr) return -1;
  char path[kViewFileName];
  snprintf(path, sizeof(path), "%s.%s", kViewFile, sid);

  QmFlock lock(kLockFile);
  if (CreateDirP(kLockDir, "", false) != 0) {
    QM_LOG_ALWAYS("CheckFileExistance", "Failed to create dir[%s]\n", kLockDir);
  }
  if (lock.LockEx(-1) != 0) {
    QM_LOG_ALWAYS("CheckFileExistance", "Fail to create new pid file.\n");
    return -1;
  }
  if (IsFileExist(path, false)) {
    lock.UnLock();
    return UpdateViewFile(path, timestamp);
  }
  const int result = CreateViewFile(path, timestamp);
  lock.UnLock();
  if (result != 0) QM_LOG_ALWAYS("CheckFileExistance", "Fail to create new pid file.\n");
  return result;
}
