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

// Tells whether a signal came in between, after which nothing may block any more.
bool Write(iovec* parts, int count, bool& signalled) {
  if (fflush(stdout) != 0) return false;
  const ssize_t written = writev(STDOUT_FILENO, parts, count);
  if (written < 0 && errno != EINTR && errno != EAGAIN) return false;
  if (written > 0) Advance(parts, count, static_cast<std::size_t>(written));
  // A blocking descriptor takes everything unless a signal came.
  signalled = count > 0;
  return !signalled || WriteRest(parts, count);
}

}  // namespace

bool WriteAll(iovec* parts, int count) {
  bool signalled = false;
  return Write(parts, count, signalled);
}

bool WriteAround(iovec* head, int count, const LentBytes& lent, const iovec& tail) {
  bool signalled = false;
  if (!Write(head, count, signalled)) return false;
  off_t offset = lent.offset;
  std::size_t sent = 0;
  while (!signalled && sent < lent.size) {
    // Waits while the pipe is full; then it takes what there is room for.
    const ssize_t passed = splice(lent.fd, &offset, STDOUT_FILENO, nullptr, lent.size - sent, 0);
    signalled = passed < 0 && errno == EINTR;
    if (passed <= 0) break;
    sent += static_cast<std::size_t>(passed);
  }
  auto* const bytes = static_cast<char*>(const_cast<void*>(lent.copy));
  iovec rest[] = {{bytes + sent, lent.size - sent}, tail};
  return signalled ? WriteRest(rest, 2) : WriteAll(rest, 2);
}

}  // namespace oculora
