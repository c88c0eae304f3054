// One column of a database row, as an object.
#pragma once

#include <json/value.h>

#include <string>

#include "velm/database.h"

// The order of the virtual operations is shared with the host.
class DBMember {
 public:
  virtual ~DBMember() = default;
  virtual void SetByJson(const Json::Value& json) = 0;  // keeps the old value when `json` cannot be converted
  virtual Json::Value ToJson() const = 0;
  virtual std::string ToSqlValue() const = 0;  // quoted and escaped
  virtual void FromSqlResult(DBResult_tag* result, unsigned row, const std::string& column) = 0;
};
