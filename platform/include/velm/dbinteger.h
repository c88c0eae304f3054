// Integer columns of a database row.
#pragma once

#include <cstdint>
#include <string>

#include "dbmember.h"

template <>
class __attribute__((visibility("default"))) DBPrimitiveMember<std::int32_t> : public DBMember {
 public:
  std::int32_t Get() const { return m_Value; }

  void SetByJson(const Json::Value& json) override;  // whole numbers and booleans that fit; else keeps the old value
  Json::Value ToJson() const override;
  std::string ToSqlValue() const override;
  // 0 for a field that holds no number.
  void FromSqlResult(DBResult_tag* result, unsigned row, const std::string& column) override;

 private:
  std::int32_t m_Value = 0;
};
