// Writing all of it.
#include "recordings/avi/write_at.h"

#include <cerrno>

namespace oculora {
namespace {

// Takes `done` bytes off the front.
void Advance(iovec*& parts, int& count, std::size_t done) {
  while (count > 0 && done >= parts->iov_len) {
    done -= parts->iov_len;
    ++parts;
    --count;
  }
  if (count == 0) return;
  parts->iov_base = static_cast<char*>(parts->iov_base) + done;
  parts->iov_len -= done;
}

}  // namespace

bool WriteAt(int fd, iovec* parts, int count, std::int64_t offset) {
  while (count > 0) {
    const ssize_t done = pwritev(fd, parts, count, static_cast<off_t>(offset));
    if (done < 0 && errno == EINTR) continue;
    if (done == 0) errno = EIO;
    if (done <= 0) return false;
    offset += done;
    Advance(parts, count, static_cast<std::size_t>(done));
  }
  return true;
}

bool WriteAt(int fd, const void* data, std::size_t size, std::int64_t offset) {
  iovec part = {const_cast<void*>(data), size};
  return WriteAt(fd, &part, 1, offset);
}

}  // namespace oculora
