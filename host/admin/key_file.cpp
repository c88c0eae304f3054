// Writing stream-key files.
#include "admin/key_file.h"

#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <functional>
#include <sstream>

#include "admin/key_lines.h"
#include "front/write_file.h"
#include "records/records.h"
#include "velm/file.h"

namespace oculora {
namespace {

constexpr int kLockMs = 5000;

std::string ReadText(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

std::string KeyPath(int owner) {
  return std::string(kStreamKeyDir) + "/rtsp_key" + (owner != 0 ? std::to_string(owner) : "");
}

std::string KeyText(const StreamKeyMap& keys) {
  std::string text;
  for (const auto& [camera, both] : keys) text += KeyLine(camera, both.first, both.second);
  return text;
}

bool EditKeys(int owner, const std::function<std::string(const std::string&)>& edit) {
  if (CreateDirP(kStreamKeyDir, "", false) != 0) return false;
  QmFlock lock(std::string(kStreamKeyDir) + "/.lock");
  if (lock.LockEx(kLockMs) != 0) {
    errno = EAGAIN;
    return false;
  }
  const std::string path = KeyPath(owner);
  const std::string before = ReadText(path);
  const std::string after = edit(before);
  return after == before || WriteFileAtomically(path, after);
}

}  // namespace

bool WriteStreamKeys(int owner, int camera, const std::string& first, const std::string& second) {
  return EditKeys(owner, [&](const std::string& text) { return SetKeyLine(text, camera, first, second); });
}

bool RemoveStreamKeys(int owner, int camera) {
  return EditKeys(owner, [&](const std::string& text) { return RemoveKeyLine(text, camera); });
}

bool ReplaceStreamKeys(int owner, const StreamKeyMap& keys) {
  return EditKeys(owner, [&](const std::string& /*before*/) { return KeyText(keys); });
}

bool HoldsStreamKeys(int owner, const StreamKeyMap& keys) { return ReadText(KeyPath(owner)) == KeyText(keys); }

bool RemoveAllStreamKeys(int owner) { return unlink(KeyPath(owner).c_str()) == 0 || errno == ENOENT; }

}  // namespace oculora
