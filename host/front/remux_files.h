// Where the HLS remux of a camera keeps its files: names the streaming module has fixed.
#pragma once

#include <string>

namespace oculora {

constexpr char kRemuxRoot[] = "/tmp/ndcam";
// Byte N of it is locked (as an open file description lock) while the remux of camera N starts or ends.
constexpr char kRemuxLockFile[] = "/tmp/ndcam/file_lock";
constexpr char kRemuxPidDir[] = "/tmp";
constexpr char kRemuxPidPrefix[] = "webapivdostm.pid.";

inline std::string RemuxDir(int camId) { return std::string(kRemuxRoot) + "/" + std::to_string(camId); }
inline std::string RemuxPidFile(int camId) {
  return std::string(kRemuxPidDir) + "/" + kRemuxPidPrefix + std::to_string(camId);
}

}  // namespace oculora
