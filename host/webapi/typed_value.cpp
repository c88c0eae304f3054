// Reads parameter texts as JSON, typed by their default.
#include "webapi/typed_value.h"

#include <json/reader.h>

#include <cctype>
#include <exception>
#include <memory>

namespace oculora {
namespace {

constexpr int kMaxDepth = 64;  // of nested arrays and objects: a client must not choose our stack depth

const Json::CharReaderBuilder& ReaderBuilder() {
  static const Json::CharReaderBuilder builder = [] {
    Json::CharReaderBuilder strict;
    Json::CharReaderBuilder::strictMode(&strict.settings_);
    strict.settings_["strictRoot"] = false;
    strict.settings_["stackLimit"] = kMaxDepth;
    return strict;
  }();
  return builder;
}

bool ParseJson(const std::string& text, Json::Value& value) {
  try {
    const std::unique_ptr<Json::CharReader> reader(ReaderBuilder().newCharReader());
    std::string errors;
    return reader->parse(text.data(), text.data() + text.size(), &value, &errors);
  } catch (const std::exception&) {  // too deep
    return false;
  }
}

// The reader also takes "-", "+5" and "007" for numbers, JSON does not.
bool LooksLikeNumber(const std::string& text) {
  const std::size_t digits = text[0] == '-' ? 1 : 0;
  if (digits >= text.size() || std::isdigit(static_cast<unsigned char>(text[digits])) == 0) return false;
  const bool leadingZero = text[digits] == '0' && digits + 1 < text.size() &&
                           std::isdigit(static_cast<unsigned char>(text[digits + 1])) != 0;
  return !leadingZero;
}

// A number or boolean; anything else is null.
Json::Value ParseScalar(const std::string& text) {
  if (text == "true") return true;
  if (text == "false") return false;
  Json::Value value;
  if (text.empty() || !LooksLikeNumber(text) || !ParseJson(text, value) || !value.isNumeric()) return {};
  return value;
}

Json::Value AsInteger(const Json::Value& value, const Json::Value& defaultValue) {
  if (value.isBool()) return value.asInt();
  // 1e5 is a real to the reader and an integer to us. A default beyond an int asks for 64 bits.
  if (value.isInt()) return value.asInt();
  if (!defaultValue.isInt() && value.isInt64()) return Json::Value::Int64(value.asInt64());
  return defaultValue;
}

Json::Value AsUnsigned(const Json::Value& value, const Json::Value& defaultValue) {
  if (value.isBool()) return value.asUInt();
  if (value.isUInt()) return value.asUInt();
  if (!defaultValue.isUInt() && value.isUInt64()) return Json::Value::UInt64(value.asUInt64());
  return defaultValue;
}

Json::Value AsText(const std::string& text) {
  Json::Value value;
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"' && ParseJson(text, value) && value.isString()) {
    return value;
  }
  return text;
}

}  // namespace

Json::Value TypedValue(const std::string& text, const Json::Value& defaultValue) {
  switch (defaultValue.type()) {
    case Json::stringValue:
      return AsText(text);
    case Json::nullValue: {
      Json::Value value;
      return ParseJson(text, value) ? value : Json::Value(text);
    }
    case Json::arrayValue:
    case Json::objectValue: {
      Json::Value value;
      return ParseJson(text, value) && value.type() == defaultValue.type() ? value : defaultValue;
    }
    default:
      break;
  }
  const Json::Value value = ParseScalar(text);
  if (value.isNull()) return defaultValue;
  switch (defaultValue.type()) {
    case Json::intValue:
      return AsInteger(value, defaultValue);
    case Json::uintValue:
      return AsUnsigned(value, defaultValue);
    case Json::realValue:
      return value.asDouble();
    default:
      return value.asBool();
  }
}

}  // namespace oculora
