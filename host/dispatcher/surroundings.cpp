// Puts the process in order before foreign code runs in it.
#include "dispatcher/surroundings.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace oculora {

void CleanProcess() {
  close_range(3, ~0U, 0);
  umask(077);
}

bool EnterWorkDir(const char* path) {
  if (mkdir(path, 0700) != 0 && errno != EEXIST) return false;
  const int fd = open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat info {};
  int error = fstat(fd, &info) == 0 ? 0 : errno;
  if (error == 0 && info.st_uid != geteuid()) error = EPERM;
  if (error == 0 && (info.st_mode & 077) != 0 && fchmod(fd, 0700) != 0) error = errno;
  if (error == 0 && fchdir(fd) != 0) error = errno;
  close(fd);
  errno = error;
  return error == 0;
}

}  // namespace oculora
