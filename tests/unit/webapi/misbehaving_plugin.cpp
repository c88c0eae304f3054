// A plug-in that throws, says nothing, or shows what the dispatcher left it.
#include <sys/stat.h>

#include <filesystem>
#include <stdexcept>

#include "velm/apitable.h"
#include "velm/webapi.h"

namespace {

void Throw(VELM::APIRequest*, VELM::APIResponse*) { throw std::runtime_error("deliberate\nINJECTED line"); }
void ThrowNumber(VELM::APIRequest*, VELM::APIResponse*) { throw 42; }
void Silent(VELM::APIRequest*, VELM::APIResponse*) {}

// Which descriptors are open, where we are, and what new files will look like.
void Surroundings(VELM::APIRequest*, VELM::APIResponse* response) {
  Json::Value data;
  data["descriptors"] = Json::Value(Json::arrayValue);
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const bool isTheDirectory = std::filesystem::read_symlink(entry).string().rfind("/proc/", 0) == 0;
    if (!isTheDirectory) data["descriptors"].append(std::stoi(entry.path().filename()));
  }
  data["directory"] = std::filesystem::current_path().string();
  const mode_t mask = umask(0);
  umask(mask);
  data["umask"] = mask;
  response->SetSuccess(data);
  response->AddHeader("X-Good: yes");
  response->AddHeader("X-Bad: a\r\nX-Injected: b");
}

}  // namespace

extern "C" __attribute__((visibility("default"))) const VELM::APITableRow* GetAPITable() {
  static const VELM::APITableRow table[] = {
      {"Test.Odd", 1, "Throw", Throw},   {"Test.Odd", 1, "ThrowNumber", ThrowNumber},
      {"Test.Odd", 1, "Silent", Silent}, {"Test.Odd", 1, "Surroundings", Surroundings},
      {"Test.Odd", 1, "Null", nullptr},  {nullptr, 0, nullptr, nullptr},
  };
  return table;
}
