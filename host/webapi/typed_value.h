// The text of a parameter as a JSON value whose type follows a default.
#pragma once

#include <json/value.h>

#include <string>

namespace oculora {

// As VELM::APIRequest::GetParam documents it: `text` read as the type of `defaultValue`, or `defaultValue` itself when
// it does not fit. Never throws.
Json::Value TypedValue(const std::string& text, const Json::Value& defaultValue);

}  // namespace oculora
