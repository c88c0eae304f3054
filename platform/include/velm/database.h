// Rows of the recorder's database, as the row wrappers read and write them.
#pragma once

#include <json/forwards.h>

#include <string>

struct DBResult_tag;  // a result set of the host

// The text of a field, NUL-terminated; empty for NULL, for an unknown column and for a row that is not there. Owned by
// the result, valid as long as it is.
const char* QmDBFetchField(DBResult_tag* result, unsigned row, const std::string& column);

namespace QmDB {
// `value` as a quoted SQL literal: quotes in it are doubled.
std::string QuoteEscape(const std::string& value);
}  // namespace QmDB

// `json` as text in UTF-8: one line without a line end, or with `indented` a line for each value.
std::string JsonWrite(const Json::Value& json, bool indented);
