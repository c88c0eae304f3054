// Who looks after the recordings of a camera: one process at a time.
#include "recorder/recording/recording_lock.h"

#include <fcntl.h>
#include <unistd.h>

#include "recorder/clock.h"

namespace oculora {
namespace {

constexpr char kLockPath[] = "/var/packages/Oculora/var/recording.lock";
constexpr int kPollUs = 20000;

}  // namespace

// Each camera is one byte of the file.
bool RecordingLock::Lock(int camId, int timeoutMs) {
  m_Fd.Reset(open(kLockPath, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!m_Fd.IsValid()) return false;
  const std::int64_t endUs = MonotonicUs() + std::int64_t{timeoutMs} * 1000;
  for (;;) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = camId;
    lock.l_len = 1;
    if (fcntl(m_Fd.Get(), F_OFD_SETLK, &lock) == 0) return true;
    if (MonotonicUs() >= endUs) break;
    usleep(kPollUs);
  }
  m_Fd.Reset();
  return false;
}

}  // namespace oculora
