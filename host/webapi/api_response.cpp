// VELM::APIResponse: the answer's envelope and its extra headers.
#include <algorithm>

#include "velm/webapi.h"

namespace VELM {

void APIResponse::SetSuccess(const Json::Value& data) {
  m_Envelope = Json::Value(Json::objectValue);
  m_Envelope["success"] = true;
  if (!data.isNull()) m_Envelope["data"] = data;
}

void APIResponse::SetError(int code, const Json::Value& data) {
  m_Envelope = Json::Value(Json::objectValue);
  m_Envelope["success"] = false;
  m_Envelope["error"]["code"] = code;
  if (!data.isNull()) m_Envelope["error"]["data"] = data;
}

void APIResponse::AddHeader(const std::string& line) {
  // A line end inside would start a header, or the body, of somebody else's choosing.
  if (std::any_of(line.begin(), line.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; })) return;
  m_Headers += line;
  m_Headers += "\r\n";
}

}  // namespace VELM
