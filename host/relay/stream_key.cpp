// Stream keys of cameras, as the key files hold them: one line a camera, "ID=FIRST/SECOND".
#include "relay/stream_key.h"

#include <algorithm>

#include "records/records.h"
#include "velm/file.h"
#include "velm/relay.h"

namespace oculora {
namespace {

constexpr std::size_t kMaxKey = 35;

}  // namespace

bool IsStreamKey(const std::string& key) {
  return !key.empty() && key.size() <= kMaxKey && std::all_of(key.begin(), key.end(), [](char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
  });
}

bool LoadStreamKeys(int ownerNdId, int camId, StreamKeys& keys) {
  std::string path = std::string(kStreamKeyDir) + "/rtsp_key";
  if (ownerNdId != 0) path += std::to_string(ownerNdId);
  std::string value;
  if (QmFileGetVal(path, std::to_string(camId), value, false) < 1) return false;
  const std::size_t slash = value.find('/');
  keys.first = value.substr(0, slash);
  keys.second = slash != std::string::npos ? value.substr(slash + 1) : std::string();
  return true;
}

bool IsStreamKeyOf(int ownerNdId, int camId, const std::string& key) {
  StreamKeys keys;
  if (key.empty() || camId < 1 || !LoadStreamKeys(ownerNdId, camId, keys)) return false;
  return key == keys.first || key == keys.second;
}

}  // namespace oculora

std::string GetRecCamStmKey(int ownerNdId, int camId) {
  oculora::StreamKeys keys;
  return oculora::LoadStreamKeys(ownerNdId, camId, keys) ? keys.first : std::string();
}
