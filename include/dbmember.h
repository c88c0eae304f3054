// One column of a database row, as an object.
#pragma once

#include <json/value.h>

#include <stdexcept>
#include <string>

#include "qmlog.h"
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

// A column of one plain value. Text is defined here; a host defines the types that its tables have beside it.
template <typename T>
class DBPrimitiveMember;

template <>
class DBPrimitiveMember<std::string> : public DBMember {
 public:
  const std::string& Get() const { return m_Value; }

  void SetByJson(const Json::Value& json) override {
    try {
      m_Value = json.asString();
    } catch (const Json::LogicError&) {
      LogConversion(json);
    } catch (const std::runtime_error&) {  // what JsonCpp threw before it had errors of its own
      LogConversion(json);
    }
  }
  Json::Value ToJson() const override { return m_Value; }
  std::string ToSqlValue() const override { return QmDB::QuoteEscape(m_Value); }
  void FromSqlResult(DBResult_tag* result, unsigned row, const std::string& column) override {
    m_Value = QmDBFetchField(result, row, column);
  }

 private:
  static void LogConversion(const Json::Value& json) {
    QmPrintf(LOG_TYPE_DEFAULT, nullptr, nullptr, "include/dbmember", __LINE__, "SetByJson",
             "Failed converting Json [%s] to DBPrimitiveMember\n", JsonWrite(json, false).c_str());
  }

  std::string m_Value;
};
