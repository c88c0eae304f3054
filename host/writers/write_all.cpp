// Writes gathered buffers to standard output, whole.
#include "writers/write_all.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace oculora {

namespace {

constexpr int kGraceMs = 1000;

// Drops `count` written bytes from the front of the parts.
void Advance(iovec*& parts, int& left, std::size_t count) {
  while (left > 0 && count >= parts->iov_len) {
    count -= parts->iov_len;
    ++parts;
    --left;
  }
  if (left > 0) {
    parts->iov_base = static_cast<char*>(parts->iov_base) + count;
    parts->iov_len -= count;
  }
}

// Makes descriptor 1 non-blocking while it lives.
class NonBlockingOutput {
 public:
  NonBlockingOutput() : m_Flags(fcntl(STDOUT_FILENO, F_GETFL)) { fcntl(STDOUT_FILENO, F_SETFL, m_Flags | O_NONBLOCK); }
  ~NonBlockingOutput() { fcntl(STDOUT_FILENO, F_SETFL, m_Flags); }
  NonBlockingOutput(const NonBlockingOutput&) = delete;
  NonBlockingOutput& operator=(const NonBlockingOutput&) = delete;

 private:
  int m_Flags;
};

bool IsWritableWithin(int timeoutMs) {
  pollfd out{STDOUT_FILENO, POLLOUT, 0};
  return poll(&out, 1, timeoutMs) != 0;
}

// Goes on after a signal: as long as the reader keeps taking bytes, all of them.
bool WriteRest(iovec* parts, int count) {
  const NonBlockingOutput nonBlocking;
  while (count > 0) {
    const ssize_t written = writev(STDOUT_FILENO, parts, count);
    if (written >= 0) {
      Advance(parts, count, static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      if (!IsWritableWithin(kGraceMs)) return false;
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool WriteAll(iovec* parts, int count) {
  if (fflush(stdout) != 0) return false;
  const ssize_t written = writev(STDOUT_FILENO, parts, count);
  if (written < 0) return (errno == EINTR || errno == EAGAIN) && WriteRest(parts, count);
  Advance(parts, count, static_cast<std::size_t>(written));
  // A blocking descriptor takes everything unless a signal came in between.
  return count == 0 || WriteRest(parts, count);
}

}  // namespace oculora
