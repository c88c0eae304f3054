// A JSON object as the query text of a call to another host.
#include <json/writer.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "velm/relay.h"
#include "webapi/log_line.h"

namespace {

constexpr char kLogUnit[] = "relay";

// The parameters that may travel to another host. Nothing else is passed on: what a handler collects from a client must
// not turn into a parameter that the other host trusts.
constexpr std::array<std::string_view, 20> kRelayedKeys = {
    "api",     "method",     "version",     "cameraId", "format",     "itemType",    "isRedirectCgi",
    "SID",     "HostIp",     "CamIdOnHost", "useHttps", "SliceId",    "StmKey",      "timestamp",
    "eventId", "recEvtType", "mountId",     "archId",   "HTTP_RANGE", "writeHeader",
};

bool IsUnreserved(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
         c == '.' || c == '~';
}

std::string PercentEncode(const std::string& text) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(text.size());
  for (const char character : text) {
    const auto c = static_cast<unsigned char>(character);
    if (IsUnreserved(c)) {
      encoded += character;
    } else {
      encoded += {'%', kDigits[c >> 4], kDigits[c & 15]};
    }
  }
  return encoded;
}

std::string ValueText(const Json::Value& value) {
  if (value.isString() || value.isNull()) return value.asString();
  Json::StreamWriterBuilder compact;
  compact["indentation"] = "";
  return Json::writeString(compact, value);
}

}  // namespace

std::string JsonToStrPair(const Json::Value& object, bool encode, bool skipNull) {
  std::string text;
  if (!object.isObject()) return text;
  for (auto member = object.begin(); member != object.end(); ++member) {
    const std::string name = member.name();
    if (member->isNull() && skipNull) continue;
    if (std::find(kRelayedKeys.begin(), kRelayedKeys.end(), name) == kRelayedKeys.end()) {
      HOST_LOG_ERROR("Parameter \"%s\" is not passed on to other hosts.\n", oculora::ForLog(name).c_str());
      continue;
    }
    if (!text.empty()) text += '&';
    const std::string value = ValueText(*member);
    text += name + "=" + (encode ? PercentEncode(value) : value);
  }
  return text;
}
