// Tells a process that a file lists from another one that got the same pid later.
#include "process_start.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

namespace {

// The kernel counts start times in ticks; file times have a coarse clock of their own.
constexpr double kSlackSeconds = 1.0;

double Seconds(const timespec& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// Field 22 of /proc/PID/stat, in seconds since boot; below 0 when it cannot be read.
double StartSinceBoot(int pid) {
  char path[32];
  snprintf(path, sizeof(path), "/proc/%d/stat", pid);
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path, "re"), fclose);
  char text[1024] = "";
  if (file == nullptr || fgets(text, sizeof(text), file.get()) == nullptr) return -1;
  const char* field = strrchr(text, ')');  // the name before it may hold spaces
  for (int number = 2; field != nullptr && number < 22; ++number) field = strchr(field + 1, ' ');
  unsigned long long ticks = 0;
  if (field == nullptr || sscanf(field, " %llu", &ticks) != 1) return -1;
  return static_cast<double>(ticks) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

}  // namespace

bool StartedAfterLastWrite(int pid, int fd) {
  struct stat info {};
  const double start = StartSinceBoot(pid);
  if (start < 0 || fstat(fd, &info) != 0) return false;
  timespec real{};
  timespec boot{};
  clock_gettime(CLOCK_REALTIME, &real);
  clock_gettime(CLOCK_BOOTTIME, &boot);
  const double sinceBoot = Seconds(boot) - (Seconds(real) - Seconds(info.st_mtim));
  return start > sinceBoot + kSlackSeconds;
}
