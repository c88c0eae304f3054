// Brings records of earlier versions up to date: one step from each version to the next, never changed once released.
#include "records/migrations.h"

#include "schema.h"

namespace oculora {
namespace {

struct Step {
  const char* tables;  // new ones; null: none
  const char* changes;
};

constexpr Step kSteps[] = {
    // 1 to 2: what the recorder measured where nobody declared a rate.
    {nullptr,
     "ALTER TABLE camera_profiles ADD COLUMN measured_fps INTEGER NOT NULL DEFAULT 0;"
     "UPDATE version SET version = 2"},
    // 2 to 3: recording.
    {kRecordingTablesSql,
     "ALTER TABLE cameras ADD COLUMN record_seconds INTEGER NOT NULL DEFAULT 0;"
     "UPDATE version SET version = 3"},
};
static_assert(std::size(kSteps) == kSchemaVersion - 1);

}  // namespace

bool Migrate(DatabaseImpl& database, int version) {
  for (; version < kSchemaVersion; ++version) {
    const Step& step = kSteps[version - 1];
    if (step.tables != nullptr && !database.Execute(step.tables)) return false;
    if (!database.Execute(step.changes)) return false;
  }
  return true;
}

}  // namespace oculora
