// Writes log lines to the host's log file and, when asked, to the system log.
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "records/records.h"
#include "velm/log.h"

namespace {

// A line is formatted on the stack and written with one append: lines of different processes never mix.
constexpr std::size_t kMaxLine = 4096;

// "2026-03-01 12:34:56 [1234] ERR stream/videoStreaming:120 HandleProcess: "
int FormatPrefix(char* line, std::size_t size, const char* categ, const char* level, const char* unit, int sourceLine,
                 const char* func) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  char stamp[32];
  strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", &local);
  return snprintf(line, size, "%s.%03ld [%d] %s%s%s %s:%d %s: ", stamp, now.tv_nsec / 1000000, getpid(),
                  categ != nullptr ? categ : "", categ != nullptr ? "/" : "", level != nullptr ? level : "-",
                  unit != nullptr ? unit : "-", sourceLine, func != nullptr ? func : "-");
}

// One message is one line: line ends inside it, which a client may have sent, become spaces.
std::size_t Flatten(char* text, std::size_t length) {
  while (length > 0 && (text[length - 1] == '\n' || text[length - 1] == '\r')) --length;
  std::replace_if(
      text, text + length, [](char c) { return static_cast<unsigned char>(c) < 0x20 && c != '\t'; }, ' ');
  return length;
}

int AppendToFile(const char* line, std::size_t length) {
  const int fd = open(oculora::kLogPath, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return -1;
  const ssize_t written = write(fd, line, length);
  close(fd);
  return written == static_cast<ssize_t>(length) ? 0 : -1;
}

int SyslogPriority(const char* level) {
  if (level == nullptr) return LOG_ERR;
  switch (level[0]) {
    case 'F':
    case 'A':
      return LOG_CRIT;
    case 'E':
      return LOG_ERR;
    case 'W':
      return LOG_WARNING;
    case 'I':
      return LOG_INFO;
    default:
      return LOG_DEBUG;
  }
}

bool WantsSystemLog() {
  ReinitDbgLogCfg();
  return g_pDbgLogCfg != nullptr && g_pDbgLogCfg->systemLog == 1;
}

void WriteToSystemLog(const char* level, const char* message, int length) {
  openlog("oculora", LOG_PID, LOG_DAEMON);
  syslog(SyslogPriority(level), "%.*s", length, message);
  closelog();
}

}  // namespace

int QmVPrintf(LOG_TYPE, const char* categ, const char* level, const char* unit, int line, const char* func,
              const char* format, va_list args) {
  char text[kMaxLine];
  const int prefix = std::clamp(FormatPrefix(text, sizeof(text) - 1, categ, level, unit, line, func), 0,
                                static_cast<int>(sizeof(text)) / 2);
  const auto room = sizeof(text) - 1 - static_cast<std::size_t>(prefix);
  const int body = vsnprintf(text + prefix, room, format, args);
  if (body < 0) return -1;
  const auto used = std::min(static_cast<std::size_t>(body), room - 1);
  const std::size_t length = static_cast<std::size_t>(prefix) + Flatten(text + prefix, used);
  text[length] = '\n';
  const int result = AppendToFile(text, length + 1);
  if (WantsSystemLog()) WriteToSystemLog(level, text + prefix, static_cast<int>(length) - prefix);
  return result;
}
