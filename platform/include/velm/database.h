// Rows of the recorder's database, as the row wrappers read them.
#pragma once

#include <string>

struct DBResult_tag;  // a result set of the host

// The text of a field, NUL-terminated, empty for NULL. Owned by the result, valid as long as it is.
const char* QmDBFetchField(DBResult_tag* result, unsigned row, const std::string& column);

namespace QmDB {
// `value` as a quoted SQL literal.
std::string QuoteEscape(const std::string& value);
}  // namespace QmDB
