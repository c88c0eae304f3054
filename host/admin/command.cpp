// Helpers of the commands.
#include "admin/command.h"

#include <cstdio>

namespace oculora {

int Fail(const std::string& sentence) {
  fprintf(stderr, "oculora: %s\n", sentence.c_str());
  return 1;
}

std::optional<Database> OpenRecords(Database::Mode mode) {
  std::string error;
  auto records = Database::Open(mode, &error);
  if (!records) Fail(error);
  return records;
}

std::optional<CameraRecord> LoadCameraOrTell(Database& records, int id) {
  auto camera = records.LoadCamera(id);
  if (!camera) {
    Fail(records.IsUnreadable() ? records.LastError()
                                : "there is no camera " + std::to_string(id) + "; see \"oculora camera list\"");
  }
  return camera;
}

}  // namespace oculora
