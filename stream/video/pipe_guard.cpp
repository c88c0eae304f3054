// Keeps the two threads of a remux from waiting for each other at their pipe.
#include "pipe_guard.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

int PipeGuard::s_Fd = -1;

bool PipeGuard::Hold(const char* path) {
  const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return false;
  s_Fd = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);  // leaves 0 to the pipe
  close(fd);
  return s_Fd >= 0;
}

void PipeGuard::WakeReader() {
  if (s_Fd < 0) return;
  char path[32];
  snprintf(path, sizeof(path), "/proc/self/fd/%d", s_Fd);
  const int fd = open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (fd >= 0) close(fd);
}

void PipeGuard::Release() {
  if (s_Fd >= 0) close(s_Fd);
  s_Fd = -1;
}
