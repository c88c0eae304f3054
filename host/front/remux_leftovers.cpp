// Clears away what HLS remuxes that were killed have left behind.
#include "front/remux_leftovers.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <memory>
#include <set>
#include <string_view>

#include "front/remux_files.h"
#include "front/unique_fd.h"
#include "velm/file.h"
#include "velm/process.h"

namespace oculora {
namespace {

struct DirCloser {
  void operator()(DIR* dir) const { closedir(dir); }
};

// Adds the cameras that `path` names in its entries, as numbers after `prefix`.
void CollectCameras(const char* path, std::string_view prefix, std::set<int>& cameras) {
  const std::unique_ptr<DIR, DirCloser> dir(opendir(path));
  while (const dirent* entry = dir ? readdir(dir.get()) : nullptr) {
    std::string_view name = entry->d_name;
    if (!name.starts_with(prefix)) continue;
    name.remove_prefix(prefix.size());
    int camera = 0;
    const auto parsed = std::from_chars(name.data(), name.data() + name.size(), camera);
    // Only the number as it is written by those who make the files.
    if (parsed.ec == std::errc() && camera > 0 && std::to_string(camera) == name) cameras.insert(camera);
  }
}

// A directory of ours; anyone may have made a link of that name in /tmp.
bool IsOwnDirectory(const char* path) {
  struct stat info {};
  return lstat(path, &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == geteuid();
}

bool LockCamera(int fd, int camera, short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = camera;
  lock.l_len = 1;
  return fcntl(fd, F_OFD_SETLK, &lock) == 0;
}

}  // namespace

void RemoveRemuxLeftovers() {
  std::set<int> cameras;
  CollectCameras(kRemuxPidDir, kRemuxPidPrefix, cameras);
  CollectCameras(kRemuxRoot, "", cameras);
  if (cameras.empty() || CreateDirP(kRemuxRoot, "", false) != 0 || !IsOwnDirectory(kRemuxRoot)) return;
  const UniqueFd lock(open(kRemuxLockFile, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!lock.IsValid()) return;
  for (const int camera : cameras) {
    if (!LockCamera(lock.Get(), camera, F_WRLCK)) continue;
    if (!ProcAliveByPidFile(RemuxPidFile(camera))) {
      unlink(RemuxPidFile(camera).c_str());
      QmRm(RemuxDir(camera));
    }
    LockCamera(lock.Get(), camera, F_UNLCK);
  }
}

}  // namespace oculora
