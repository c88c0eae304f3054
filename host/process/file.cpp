// Small file operations.
#include "velm/file.h"

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

bool GiveTo(const std::string& path, const std::string& owner) {
  if (owner.empty()) return true;
  passwd entry{};
  passwd* found = nullptr;
  char buffer[1024];
  if (getpwnam_r(owner.c_str(), &entry, buffer, sizeof(buffer), &found) != 0 || found == nullptr) return false;
  return lchown(path.c_str(), found->pw_uid, found->pw_gid) == 0;
}

}  // namespace

int QmTouch(const std::string& path) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return -1;
  const int result = futimens(fd, nullptr);
  close(fd);
  return result;
}

bool IsExistDir(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool IsFileExist(const std::string& path, bool notEmpty) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && (!notEmpty || info.st_size > 0);
}

int CreateDirP(const std::string& path, const std::string& owner, bool recursive) {
  for (std::size_t end = path.find('/', 1); !path.empty(); end = path.find('/', end + 1)) {
    const bool last = end == std::string::npos || end + 1 == path.size();
    const std::string part = path.substr(0, end);
    if (mkdir(part.c_str(), 0700) == 0) {
      if ((last || recursive) && !GiveTo(part, owner)) return -1;
    } else if (errno != EEXIST) {
      return -1;
    }
    if (last) break;
  }
  return IsExistDir(path) ? 0 : -1;
}

int GetFilesInDir(const std::string& path, std::list<std::string>& names) {
  DIR* dir = opendir(path.c_str());
  if (dir == nullptr) return -1;
  while (const dirent* entry = readdir(dir)) {
    struct stat info {};
    if (fstatat(dirfd(dir), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(info.st_mode)) {
      names.emplace_back(entry->d_name);
    }
  }
  closedir(dir);
  return 0;
}

std::string StringReplaceSymbol(const std::string& text, const std::string& symbol, const std::string& replacement) {
  if (symbol.empty()) return text;
  std::string result;
  std::size_t from = 0;
  for (std::size_t at = text.find(symbol); at != std::string::npos; at = text.find(symbol, from)) {
    result.append(text, from, at - from).append(replacement);
    from = at + symbol.size();
  }
  return result.append(text, from);
}

void Strncpy(char* target, const std::string& source, unsigned size) {
  if (size == 0) return;
  const std::size_t length = std::min<std::size_t>(source.size(), size - 1);
  memcpy(target, source.data(), length);
  target[length] = '\0';
}
