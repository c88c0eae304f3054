// A row of a database table: one member object a column, and the table of them that the host's loader walks.
#pragma once

#include "dbmember.h"

// The columns of a table whose enumeration is `Columns`. The host specialises it for each table: a member object a
// column, and an array `m_Members` of as many pointers to them, in the order of the columns, filled by the constructor.
template <typename Columns>
class DBWrapperData;

template <typename Columns>
class DBWrapper : protected DBWrapperData<Columns> {
 public:
  // Reports columns that the host's data part left without a member; the row can be used all the same.
  DBWrapper() {
    for (const DBMember* member : this->m_Members) {
      if (member == nullptr) {
        QmPrintf(LOG_TYPE_DEFAULT, nullptr, nullptr, "include/dbwrapper", __LINE__, "DBWrapper",
                 "Data member of db wrapper table [%s] is not correctly initialized\n", m_szTableName);
      }
    }
  }
  virtual ~DBWrapper() = default;
  // The pointers lead into the object itself.
  DBWrapper(const DBWrapper&) = delete;
  DBWrapper& operator=(const DBWrapper&) = delete;

  virtual int LoadById(int id) = 0;  // 0 on success
  virtual bool ShouldLogOnError() const { return true; }

  static const char* const m_szTableName;  // defined by the host for each table
};
