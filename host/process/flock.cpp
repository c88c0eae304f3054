// Advisory file locks.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "velm/file.h"

namespace {

constexpr long kPollNs = 10000000;

// flock(2) has no time-out, so a bounded wait polls.
bool LockWithin(int fd, int timeoutMs) {
  const timespec pause{0, kPollNs};
  for (int waited = 0;; waited += static_cast<int>(kPollNs / 1000000)) {
    if (flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
    if ((errno != EWOULDBLOCK && errno != EINTR) || waited >= timeoutMs) return false;
    nanosleep(&pause, nullptr);
  }
}

bool LockForever(int fd) {
  while (flock(fd, LOCK_EX) != 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

}  // namespace

QmFlock::QmFlock(const std::string& path) : m_Path(path) {}

QmFlock::~QmFlock() { UnLock(); }

int QmFlock::LockEx(int timeoutMs) {
  if (m_Fd < 0) m_Fd = open(m_Path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (m_Fd < 0) return -1;
  if (timeoutMs < 0 ? LockForever(m_Fd) : LockWithin(m_Fd, timeoutMs)) return 0;
  UnLock();
  return -1;
}

void QmFlock::UnLock() {
  if (m_Fd < 0) return;
  close(m_Fd);  // the lock goes with its only open file description
  m_Fd = -1;
}
