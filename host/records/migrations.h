// Brings records of earlier versions up to date.
#pragma once

#include "records/database_impl.h"

namespace oculora {

constexpr int kSchemaVersion = 3;

// Takes records of `version` (1 to kSchemaVersion) to kSchemaVersion, step by step. The caller holds the transaction.
// False on failure; nothing must be committed then.
bool Migrate(DatabaseImpl& database, int version);

}  // namespace oculora
