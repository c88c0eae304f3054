// Fields of result sets, SQL literals and JSON text, as the row wrappers use them.
#include "records/db_result.h"

#include <json/writer.h>

#include <charconv>
#include <string_view>

#include "velm/database.h"
#include "velm/dbinteger.h"

const char* QmDBFetchField(DBResult_tag* result, unsigned row, const std::string& column) {
  if (result == nullptr || row >= result->rows.size()) return "";
  const std::vector<std::string>& fields = result->rows[row];
  for (std::size_t i = 0; i < fields.size() && i < result->columns.size(); ++i) {
    if (column == result->columns[i]) return fields[i].c_str();
  }
  return "";
}

std::string QmDB::QuoteEscape(const std::string& value) {
  std::string literal = "'";
  for (const char* c = value.c_str(); *c != 0; ++c) {  // an SQL text ends at the first NUL
    if (*c == '\'') literal += '\'';
    literal += *c;
  }
  return literal + "'";
}

std::string JsonWrite(const Json::Value& json, bool indented) {
  Json::StreamWriterBuilder builder;
  builder["emitUTF8"] = true;
  builder["indentation"] = indented ? "  " : "";
  return Json::writeString(builder, json);
}

void DBPrimitiveMember<std::int32_t>::SetByJson(const Json::Value& json) {
  if (json.isBool() || json.isInt()) m_Value = json.asInt();
}

Json::Value DBPrimitiveMember<std::int32_t>::ToJson() const { return m_Value; }

std::string DBPrimitiveMember<std::int32_t>::ToSqlValue() const { return std::to_string(m_Value); }

void DBPrimitiveMember<std::int32_t>::FromSqlResult(DBResult_tag* result, unsigned row, const std::string& column) {
  const std::string_view text = QmDBFetchField(result, row, column);
  std::int32_t value = 0;
  const bool isNumber = std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc();
  m_Value = isNumber ? value : 0;
}
