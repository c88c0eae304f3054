// How a user stands in a row of a result.
#pragma once

#include "records/records.h"
#include "records/statement.h"

// The columns ReadUser expects, from a table or alias `u`, first in the row.
#define USER_COLUMNS "u.uid, u.name, u.admin, u.app_privilege, u.operations"

namespace oculora {

inline UserRecord ReadUser(const Statement& row) {
  UserRecord user;
  user.uid = row.Int(0);
  user.name = row.Text(1);
  user.admin = row.Bool(2);
  user.appPrivilege = row.Bool(3);
  user.operations = static_cast<std::uint32_t>(row.Int64(4));
  return user;
}

}  // namespace oculora
