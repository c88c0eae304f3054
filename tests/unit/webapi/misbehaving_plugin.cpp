// A plug-in that throws, says nothing, writes by itself, or shows what the dispatcher left it.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "velm/apitable.h"
#include "velm/webapi.h"

namespace {

void Throw(VELM::APIRequest*, VELM::APIResponse*) { throw std::runtime_error("deliberate\nINJECTED line"); }
void ThrowNumber(VELM::APIRequest*, VELM::APIResponse*) { throw 42; }
void Silent(VELM::APIRequest*, VELM::APIResponse*) {}

void Raw(VELM::APIRequest*, VELM::APIResponse* response) {
  printf("Content-Type: text/plain\r\n\r\nraw");
  response->SetEnableOutput(false);
  response->SetError(100, "never seen");
}

// Which descriptors are open, where we are, and what new files will look like.
void Surroundings(VELM::APIRequest* request, VELM::APIResponse* response) {
  Json::Value data;
  DIR* directory = opendir("/proc/self/fd");
  const int own = dirfd(directory);
  data["descriptors"] = Json::Value(Json::arrayValue);
  while (const dirent* entry = readdir(directory)) {
    const int fd = atoi(entry->d_name);
    if (entry->d_name[0] != '.' && fd != own) data["descriptors"].append(fd);
  }
  closedir(directory);
  char path[256] = "";
  data["directory"] = getcwd(path, sizeof(path)) != nullptr ? path : "";
  const mode_t mask = umask(0);
  umask(mask);
  data["umask"] = mask;
  data["echo"] = request->GetParam("echo", "");
  response->SetSuccess(data);
  response->AddHeader("X-Good: yes");
  response->AddHeader("X-Bad: a\r\nX-Injected: b");
}

}  // namespace

extern "C" __attribute__((visibility("default"))) const VELM::APITableRow* GetAPITable() {
  static const VELM::APITableRow table[] = {
      {"Test.Odd", 1, "Throw", Throw},   {"Test.Odd", 1, "ThrowNumber", ThrowNumber},
      {"Test.Odd", 1, "Silent", Silent}, {"Test.Odd", 1, "Raw", Raw},
      {"Test.Odd", 2, "Throw", Throw},   {"Test.Odd", 1, "Surroundings", Surroundings},
      {"Test.Odd", 1, "Null", nullptr},  {nullptr, 0, nullptr, nullptr},
  };
  return table;
}
