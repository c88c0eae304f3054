// Removes files and directory trees without following symbolic links.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "velm/file.h"

namespace {

// Deeper trees than this are none of ours; each level holds one descriptor.
constexpr int kMaxDepth = 32;

// How often a directory is gone over whose owner still writes into it while it ends.
constexpr int kMaxPasses = 8;

bool RemoveAt(int parent, const char* name, int depth);

bool RemoveChildren(DIR* dir, int depth) {
  bool all = true;
  while (const dirent* entry = readdir(dir)) {
    if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
    all = RemoveAt(dirfd(dir), entry->d_name, depth + 1) && all;
  }
  return all;
}

enum class Pass { kGone, kRefilled, kFailed };

// One pass over a directory. Somebody else may remove the same tree: what is gone is gone.
Pass RemoveDirOnce(int parent, const char* name, int depth) {
  const int fd = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return errno == ENOENT ? Pass::kGone : Pass::kFailed;
  DIR* dir = fdopendir(fd);
  if (dir == nullptr) {
    close(fd);
    return Pass::kFailed;
  }
  const bool all = RemoveChildren(dir, depth);
  closedir(dir);
  if (!all) return Pass::kFailed;
  if (unlinkat(parent, name, AT_REMOVEDIR) == 0 || errno == ENOENT) return Pass::kGone;
  return errno == ENOTEMPTY || errno == EEXIST ? Pass::kRefilled : Pass::kFailed;
}

bool RemoveAt(int parent, const char* name, int depth) {
  if (unlinkat(parent, name, 0) == 0) return true;
  if (errno == ENOENT) return depth > 0;
  if ((errno != EISDIR && errno != EPERM) || depth > kMaxDepth) return false;
  Pass pass = Pass::kRefilled;
  for (int i = 0; i < kMaxPasses && pass == Pass::kRefilled; ++i) pass = RemoveDirOnce(parent, name, depth);
  return pass == Pass::kGone;
}

}  // namespace

int QmRm(const std::string& path) { return !path.empty() && RemoveAt(AT_FDCWD, path.c_str(), 0) ? 0 : -1; }
