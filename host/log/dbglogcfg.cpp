// Maps, reads and writes the shared debug-log configuration.
#include "log/dbglogcfg.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>

#include "velm/log.h"

const volatile DbgLogCfg* g_pDbgLogCfg = nullptr;
std::int32_t g_DbgLogPid = 0;

namespace {

constexpr std::int32_t kDefaultLevel = LOG_LEVEL_ERROR;

// Maps the file, which must be long enough; null otherwise.
volatile DbgLogCfg* Map(int fd, int protection) {
  struct stat info {};
  if (fstat(fd, &info) != 0 || info.st_size < static_cast<off_t>(sizeof(DbgLogCfg))) return nullptr;
  void* address = mmap(nullptr, sizeof(DbgLogCfg), protection, MAP_SHARED, fd, 0);
  return address == MAP_FAILED ? nullptr : static_cast<volatile DbgLogCfg*>(address);
}

// Makes the file when it is missing, with every threshold at its default.
volatile DbgLogCfg* MapForWriting() {
  const int fd = open(oculora::kDbgLogCfgPath, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return nullptr;
  struct stat info {};
  const bool isNew = fstat(fd, &info) == 0 && info.st_size == 0;
  volatile DbgLogCfg* config = ftruncate(fd, sizeof(DbgLogCfg)) == 0 ? Map(fd, PROT_READ | PROT_WRITE) : nullptr;
  close(fd);
  if (config != nullptr && isNew) {
    for (auto& threshold : config->levels) threshold = kDefaultLevel;
  }
  return config;
}

void Unmap(volatile DbgLogCfg* config) { munmap(const_cast<DbgLogCfg*>(config), sizeof(DbgLogCfg)); }

}  // namespace

void ReinitDbgLogCfg() {
  if (g_pDbgLogCfg != nullptr) return;
  const int fd = open(oculora::kDbgLogCfgPath, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  g_pDbgLogCfg = Map(fd, PROT_READ);
  close(fd);
}

namespace oculora {

bool WriteDbgLogCfg(std::int32_t level, const std::vector<std::int32_t>& pids) {
  if (pids.size() > static_cast<std::size_t>(DbgLogCfg::kMaxPids) || level < 0 || level > 7) {
    errno = EINVAL;
    return false;
  }
  volatile DbgLogCfg* config = MapForWriting();
  if (config == nullptr) return false;
  // A reader takes no lock. It never finds a count whose pids are missing: the count goes to "nobody" (one impossible
  // pid) first and to its new value last.
  config->pids[0] = -1;
  config->pidCount = 1;
  config->levels[LOG_CATEG_STREAM] = level;
  for (std::size_t i = 0; i < pids.size(); ++i) config->pids[i] = pids[i];
  config->pidCount = static_cast<std::int32_t>(pids.size());
  Unmap(config);
  return true;
}

bool WriteSystemLog(bool enable) {
  volatile DbgLogCfg* config = MapForWriting();
  if (config == nullptr) return false;
  config->systemLog = enable ? 1 : 0;
  Unmap(config);
  return true;
}

bool ReadDbgLogCfg(std::int32_t& level, std::vector<std::int32_t>& pids) {
  const int fd = open(kDbgLogCfgPath, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  volatile DbgLogCfg* config = Map(fd, PROT_READ);
  close(fd);
  if (config == nullptr) return false;
  level = config->levels[LOG_CATEG_STREAM];
  pids.clear();
  for (std::int32_t i = 0; i < config->pidCount && i < DbgLogCfg::kMaxPids; ++i) {
    const std::int32_t pid = config->pids[i];
    pids.push_back(pid);
  }
  Unmap(config);
  return true;
}

}  // namespace oculora
