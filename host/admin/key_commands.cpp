// oculora key: the stream keys that open a camera without a session.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "admin/command.h"
#include "admin/key_file.h"
#include "relay/stream_key.h"

namespace oculora {
namespace {

struct KeyOptions {
  int camera = 0;
  std::string first;
  std::string second;
};

int SetKeys(const KeyOptions& options) {
  for (const std::string& key : {options.first, options.second}) {
    if (!IsStreamKey(key)) {
      return Fail("\"" + key + "\" is no stream key; use 1 to 35 letters, digits, \"_\" and \"-\"");
    }
  }
  auto records = OpenRecords(Database::Mode::kReadOnly);
  if (!records) return 1;
  const auto camera = LoadCameraOrTell(*records, options.camera);
  if (!camera) return 1;
  if (!WriteStreamKeys(camera->ownerNdId, camera->id, options.first, options.second)) {
    return Fail(std::string("the keys cannot be written to ") + kStreamKeyDir + ": " + std::strerror(errno));
  }
  return 0;
}

int ShowKeys(const KeyOptions& options) {
  auto records = OpenRecords(Database::Mode::kReadOnly);
  if (!records) return 1;
  const auto camera = LoadCameraOrTell(*records, options.camera);
  if (!camera) return 1;
  StreamKeys keys;
  if (!LoadStreamKeys(camera->ownerNdId, camera->id, keys)) {
    return Fail("camera " + std::to_string(camera->id) + " has no stream keys; set them with \"oculora key set\"");
  }
  printf("%s\n%s\n", keys.first.c_str(), keys.second.c_str());
  return 0;
}

}  // namespace

void AddKeyCommands(CLI::App& app, Action& action) {
  const auto options = std::make_shared<KeyOptions>();
  CLI::App* group = app.add_subcommand("key", "Stream keys, which open a camera without a session");
  CLI::App* set = group->add_subcommand("set", "Give a camera its two keys");
  set->add_option("CAMERA", options->camera, "Camera id")->required();
  set->add_option("KEY", options->first, "1 to 35 letters, digits, _ and -")->required();
  set->add_option("KEY2", options->second, "A second one, to change keys without a gap")->required();
  set->callback([=, &action] { action = [=] { return SetKeys(*options); }; });
  CLI::App* show = group->add_subcommand("show", "Print a camera's two keys");
  show->add_option("CAMERA", options->camera, "Camera id")->required();
  show->callback([=, &action] { action = [=] { return ShowKeys(*options); }; });
}

}  // namespace oculora
