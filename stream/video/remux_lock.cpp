// The lock under which remuxes of one camera start and end.
#include "remux_lock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "qmlog.h"
#include "velm/file.h"
#include "video_unit.h"

namespace {

constexpr char kLockDir[] = "/tmp/ndcam";
constexpr char kLockFile[] = "/tmp/ndcam/file_lock";
constexpr int kPollUs = 10000;
constexpr int kPolls = 500;

int g_LockFd = -1;

// The byte of a camera in the lock file. The lock belongs to the open file description, so that a child shares it; it
// is of another kind than the whole-file lock that live views take on the same file, and the two never meet.
struct flock ByteOf(int camId) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = camId;
  lock.l_len = 1;
  return lock;
}

bool LockByte(int fd, int camId) {
  for (int i = 0; i < kPolls; ++i) {
    struct flock lock = ByteOf(camId);
    if (fcntl(fd, F_OFD_SETLK, &lock) == 0) return true;
    if (errno != EAGAIN && errno != EACCES && errno != EINTR) return false;
    usleep(kPollUs);
  }
  return false;
}

}  // namespace

RemuxLock::RemuxLock(int camId) : m_Owner(g_LockFd < 0) {
  if (!m_Owner) return;
  CreateDirP(kLockDir, "", false);
  g_LockFd = open(kLockFile, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (g_LockFd >= 0 && LockByte(g_LockFd, camId)) return;
  QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: Going on without the lock of its remux.\n", camId);
  Leave();
}

RemuxLock::~RemuxLock() {
  if (m_Owner) Leave();
}

void RemuxLock::Leave() {
  if (g_LockFd >= 0) close(g_LockFd);
  g_LockFd = -1;
}
