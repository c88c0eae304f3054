// Moves this process into a site of its own.
#include "private_site.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "capture.h"

namespace fs = std::filesystem;
using namespace std::string_literals;

namespace {

bool Unshare() {
  const uid_t uid = geteuid();
  const gid_t gid = getegid();
  if (unshare(CLONE_NEWNS | CLONE_NEWIPC | (uid == 0 ? 0 : CLONE_NEWUSER)) != 0) return false;
  if (uid != 0) {
    WriteFile("/proc/self/setgroups", "deny");
    WriteFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
    WriteFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
  }
  return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// An empty directory over `path`, with the tree that holds this program bound back in when it lies below.
bool CoverWithEmpty(const std::string& path) {
  const fs::path program = fs::read_symlink("/proc/self/exe").parent_path();
  const int hidden = open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (hidden < 0 || mount("tmpfs", path.c_str(), "tmpfs", 0, "mode=0755") != 0) return false;
  bool visible = true;
  if (program.string().rfind(path + "/", 0) == 0) {
    const fs::path top = fs::path(path) / *program.lexically_relative(path).begin();
    fs::create_directories(top);
    const std::string source = "/proc/self/fd/" + std::to_string(hidden) + "/" + top.filename().string();
    visible = mount(source.c_str(), top.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0;
  }
  close(hidden);
  return visible;
}

}  // namespace

bool EnterPrivateSite() {
  if (!Unshare() || !CoverWithEmpty("/tmp") || !CoverWithEmpty("/var")) {
    perror("private site");
    return false;
  }
  for (const char* dir : {"var", "etc", "target/@rtsp_info"}) fs::create_directories("/var/packages/Oculora/"s + dir);
  return fs::create_directories("/tmp/ndcam");
}
