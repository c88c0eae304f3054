// Reading what a recording server tells.
#include "servers/description.h"

#include <algorithm>

#include "records/camera_names.h"
#include "servers/clean_text.h"

namespace oculora {
namespace {

constexpr std::size_t kMostCameras = 1000;
constexpr std::size_t kMaxCameraName = 128;
constexpr std::size_t kMaxWord = 32;
constexpr std::size_t kMaxReason = 300;
constexpr int kMaxCameraId = 262143;
constexpr int kMaxFps = 120;
constexpr int kMaxPixels = 16384;

std::string TextOf(const Json::Value& object, const char* name, std::size_t maxBytes) {
  const Json::Value& value = object[name];
  return value.isString() ? CleanText(value.asString(), maxBytes) : std::string();
}

// 0 for whatever is no number from 0 to `most`.
int NumberOf(const Json::Value& object, const char* name, int most) {
  const Json::Value& value = object[name];
  return value.isInt() && value.asInt() >= 0 && value.asInt() <= most ? value.asInt() : 0;
}

bool FlagOf(const Json::Value& object, const char* name) { return object[name].isBool() && object[name].asBool(); }

// An empty object in place of anything else, which could not be looked into.
const Json::Value& ObjectOf(const Json::Value& object, const char* name) {
  static const Json::Value kNone(Json::objectValue);
  return object[name].isObject() ? object[name] : kNone;
}

// False when they would not survive in a key file. One alone stands for both: key files hold two.
bool ReadKeys(const Json::Value& list, StreamKeys& keys) {
  if (!list.isArray()) return list.isNull();
  std::vector<std::string> found;
  for (const Json::Value& key : list) {
    if (!key.isString() || found.size() == 2) return false;
    if (key.asString().empty()) continue;
    if (!IsStreamKey(key.asString())) return false;
    found.push_back(key.asString());
  }
  if (!found.empty()) keys = {found.front(), found.back()};
  return true;
}

ToldCamera ReadCamera(const Json::Value& item, int id) {
  ToldCamera camera;
  camera.id = id;
  camera.name = TextOf(item, "name", kMaxCameraName);
  if (camera.name.empty()) camera.name = "Camera " + std::to_string(id);
  camera.videoType = VideoTypeByName(TextOf(item, "type", kMaxWord));
  camera.fps = NumberOf(item, "fps", kMaxFps);
  camera.width = NumberOf(item, "width", kMaxPixels);
  camera.height = NumberOf(item, "height", kMaxPixels);
  camera.enabled = FlagOf(item, "enabled");
  camera.state = TextOf(item, "state", kMaxWord);
  camera.reason = TextOf(item, "reason", kMaxReason);
  const Json::Value& recording = ObjectOf(item, "recording");
  camera.recordingMode = TextOf(recording, "mode", kMaxWord);
  camera.recordingState = TextOf(recording, "state", kMaxWord);
  camera.recordingReason = TextOf(recording, "reason", kMaxReason);
  return camera;
}

// Takes one camera in, or notes why not. False, with a reason, when the whole answer is worth nothing.
bool TakeCamera(const Json::Value& item, ServerDescription& told, std::string& reason) {
  const int id = item.isObject() ? NumberOf(item, "id", kMaxCameraId) : 0;
  if (id == 0) {
    reason = "it tells of a camera without a number from 1 to 262143";
    return false;
  }
  const std::string which = "camera " + std::to_string(id);
  ToldCamera camera = ReadCamera(item, id);
  if (camera.videoType == 0) {
    told.notes.push_back("its " + which + " is left out: this host does not know the type \"" +
                         TextOf(item, "type", kMaxWord) + "\"");
    return true;
  }
  if (!ReadKeys(item["keys"], camera.keys)) {
    camera.keys = {};
    told.notes.push_back("the stream keys of its " + which +
                         " are left out: a key is 1 to 35 letters, digits, \"_\" and \"-\"");
  }
  told.cameras.push_back(std::move(camera));
  return true;
}

// A server of another kind may give a thousand.
void ShortenNotes(std::vector<std::string>& notes) {
  constexpr std::size_t kMostNotes = 5;
  if (notes.size() <= kMostNotes) return;
  const std::size_t more = notes.size() - kMostNotes;
  notes.resize(kMostNotes);
  notes.push_back("something is left out of " + std::to_string(more) + " more of its cameras");
}

bool HaveSameId(const ToldCamera& a, const ToldCamera& b) { return a.id == b.id; }

}  // namespace

std::optional<ServerDescription> ReadDescription(const Json::Value& data, std::string& reason) {
  if (!data.isObject() || !data["cameras"].isArray()) {
    reason = "it does not tell of its cameras";
    return std::nullopt;
  }
  if (data["cameras"].size() > kMostCameras) {
    reason = "it tells of " + std::to_string(data["cameras"].size()) + " cameras; 1000 are possible";
    return std::nullopt;
  }
  ServerDescription told;
  told.name = TextOf(data, "name", kMaxCameraName);
  told.version = TextOf(data, "version", kMaxWord);
  told.recorderRuns = FlagOf(data, "recorder");
  for (const Json::Value& item : data["cameras"]) {
    if (!TakeCamera(item, told, reason)) return std::nullopt;
  }
  ShortenNotes(told.notes);
  std::sort(told.cameras.begin(), told.cameras.end(),
            [](const ToldCamera& a, const ToldCamera& b) { return a.id < b.id; });
  const auto twice = std::adjacent_find(told.cameras.begin(), told.cameras.end(), HaveSameId);
  if (twice != told.cameras.end()) {
    reason = "it tells of camera " + std::to_string(twice->id) + " twice";
    return std::nullopt;
  }
  return told;
}

}  // namespace oculora
