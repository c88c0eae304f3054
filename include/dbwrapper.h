// A row of a database table: one member object a column, and the table of them that the host's loader walks.
#pragma once

#include <array>
#include <cstddef>

#include "dbmember.h"

// `Columns` is an enumeration of the table's columns whose last value, kColumnCount, is their number.
template <typename Columns>
class DBWrapperData {
 protected:
  std::array<DBMember*, static_cast<std::size_t>(Columns::kColumnCount)> m_Members{};  // into the deriving object
};

template <typename Columns>
class DBWrapper {
 public:
  virtual ~DBWrapper() = default;
  virtual int LoadById(int id) = 0;  // 0 on success
  virtual bool ShouldLogOnError() const { return true; }

  static const char* const m_szTableName;
};
