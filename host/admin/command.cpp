// Helpers of the commands.
#include "admin/command.h"

#include <cstdio>
#include <iostream>

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

std::optional<std::string> ReadPasswordOrTell() {
  std::string line;
  if (!std::getline(std::cin, line)) {
    Fail("no password came on standard input; give it as one line");
    return std::nullopt;
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
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
