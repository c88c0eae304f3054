// Brings records of earlier versions up to date: one step from each version to the next, never changed once released.
#include "records/migrations.h"

namespace oculora {
namespace {

constexpr const char* kSteps[] = {
    // 1 to 2: what the recorder measured where nobody declared a rate.
    "ALTER TABLE camera_profiles ADD COLUMN measured_fps INTEGER NOT NULL DEFAULT 0;"
    "UPDATE version SET version = 2",
};
static_assert(std::size(kSteps) == kSchemaVersion - 1);

}  // namespace

bool Migrate(DatabaseImpl& database, int version) {
  for (; version < kSchemaVersion; ++version) {
    if (!database.Execute(kSteps[version - 1])) return false;
  }
  return true;
}

}  // namespace oculora
