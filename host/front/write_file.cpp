// Atomic replacement of files.
#include "front/write_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "front/unique_fd.h"

namespace oculora {
namespace {

bool WriteAll(int fd, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t count = write(fd, text.data() + done, text.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return fsync(fd) == 0;
}

}  // namespace

bool WriteFileAtomically(const std::string& path, const std::string& text) {
  const std::string fresh = path + ".new";
  unlink(fresh.c_str());  // left by a power cut
  UniqueFd fd(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!fd.IsValid()) return false;
  if (WriteAll(fd.Get(), text) && rename(fresh.c_str(), path.c_str()) == 0) return true;
  const int code = errno;
  unlink(fresh.c_str());
  errno = code;
  return false;
}

}  // namespace oculora
