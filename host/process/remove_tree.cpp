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

bool RemoveAt(int parent, const char* name, int depth);

bool RemoveChildren(DIR* dir, int depth) {
  bool all = true;
  while (const dirent* entry = readdir(dir)) {
    if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
    all = RemoveAt(dirfd(dir), entry->d_name, depth + 1) && all;
  }
  return all;
}

bool RemoveAt(int parent, const char* name, int depth) {
  if (unlinkat(parent, name, 0) == 0) return true;
  if ((errno != EISDIR && errno != EPERM) || depth > kMaxDepth) return false;
  const int fd = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return false;
  DIR* dir = fdopendir(fd);
  if (dir == nullptr) {
    close(fd);
    return false;
  }
  const bool all = RemoveChildren(dir, depth);
  closedir(dir);
  return all && unlinkat(parent, name, AT_REMOVEDIR) == 0;
}

}  // namespace

int QmRm(const std::string& path) { return !path.empty() && RemoveAt(AT_FDCWD, path.c_str(), 0) ? 0 : -1; }
