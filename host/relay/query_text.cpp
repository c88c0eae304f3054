// A JSON object as the query text of a call to another host.
#include <json/writer.h>

#include "relay/query_form.h"
#include "velm/relay.h"
#include "webapi/log_line.h"

namespace {

constexpr char kLogUnit[] = "relay";

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
    if (!oculora::MayTravel(name)) {
      HOST_LOG_ERROR("Parameter \"%s\" is not passed on to other hosts.\n", oculora::ForLog(name).c_str());
      continue;
    }
    if (!text.empty()) text += '&';
    const std::string value = ValueText(*member);
    text += name + "=" + (encode ? oculora::PercentEncode(value) : value);
  }
  return text;
}
