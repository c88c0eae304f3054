// Processes found again through pid files.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "velm/process.h"

namespace {

// File times and process start times come from clocks of different grain.
constexpr double kStartSlackSeconds = 1.0;

// Reads a small file whole; false when it cannot be read.
bool ReadSmall(const char* path, char* buffer, std::size_t size) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const ssize_t count = read(fd, buffer, size - 1);
  close(fd);
  buffer[std::max<ssize_t>(count, 0)] = '\0';
  return count > 0;
}

// State letter and start time (seconds since boot) of a process, from /proc/PID/stat, fields 3 and 22.
bool ReadProcStat(pid_t pid, char& state, double& startSeconds) {
  char path[64];
  snprintf(path, sizeof(path), "/proc/%d/stat", pid);
  char text[1024];
  if (!ReadSmall(path, text, sizeof(text))) return false;
  const char* afterName = strrchr(text, ')');  // the name itself may hold spaces and brackets
  unsigned long long ticks = 0;
  if (afterName == nullptr ||
      sscanf(afterName + 1, " %c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %*u %*u %*d %*d %*d %*d %*d %*d %llu", &state,
             &ticks) != 2) {
    return false;
  }
  startSeconds = static_cast<double>(ticks) / static_cast<double>(sysconf(_SC_CLK_TCK));
  return true;
}

double Seconds(const timespec& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double BootTime() {
  timespec real{};
  timespec boot{};
  clock_gettime(CLOCK_REALTIME, &real);
  clock_gettime(CLOCK_BOOTTIME, &boot);
  return Seconds(real) - Seconds(boot);
}

bool SameUser(pid_t pid) {
  char path[64];
  snprintf(path, sizeof(path), "/proc/%d", pid);
  struct stat info {};
  return stat(path, &info) == 0 && info.st_uid == geteuid();
}

// The live process that a pid file names, or 0.
pid_t LiveProcess(const std::string& path) {
  char text[32];
  struct stat info {};
  if (!ReadSmall(path.c_str(), text, sizeof(text)) || stat(path.c_str(), &info) != 0) return 0;
  const long pid = strtol(text, nullptr, 10);
  if (pid <= 1 || pid > 0x7fffffffL) return 0;
  char state = 0;
  double started = 0;
  const auto process = static_cast<pid_t>(pid);
  if (!SameUser(process) || !ReadProcStat(process, state, started) || state == 'Z' || state == 'X') return 0;
  const bool reused = BootTime() + started > Seconds(info.st_mtim) + kStartSlackSeconds;
  return reused ? 0 : process;
}

}  // namespace

bool ProcAliveByPidFile(const std::string& path) { return LiveProcess(path) != 0; }

int ProcSignalByPidFile(const std::string& path, int signal) {
  const pid_t process = LiveProcess(path);
  return process != 0 && kill(process, signal) == 0 ? 0 : -1;
}

int CreatePidFile(const std::string& path) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) return -1;
  const bool written = dprintf(fd, "%d\n", getpid()) > 0;
  return close(fd) == 0 && written ? 0 : -1;
}

int ProcPidFileCreate(const char* path) { return CreatePidFile(path); }

void ClearOldProcess(const std::string& pidFile, int signal) {
  const pid_t process = LiveProcess(pidFile);
  if (process != 0 && process != getpid()) kill(process, signal);
}
