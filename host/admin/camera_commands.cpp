// oculora camera: the cameras of a site.
#include <json/json.h>

#include <charconv>
#include <cstdio>
#include <memory>

#include "admin/camera_removal.h"
#include "admin/camera_source.h"
#include "admin/command.h"
#include "records/camera_names.h"

namespace oculora {
namespace {

constexpr int kMaxCameraId = 262143;

struct CameraOptions {
  CameraRecord camera;
  ProfileRecord profile;
  std::string type;
  std::string source;
  std::string length;  // of recorded files, or "off"
  int id = 0;
  bool json = false;
  bool withRecordings = false;
};

// The checks that go beyond single options; an empty text when all is well.
std::string CheckServer(Database& records, const CameraRecord& camera) {
  if (camera.ownerNdId != 0 && camera.recordSeconds != 0) return "--record is for the camera's own server";
  if (camera.ownerNdId == 0) return camera.idOnRec == 0 ? "" : "--remote-id needs --server";
  if (camera.idOnRec == 0) return "--server needs --remote-id, the camera's id on that server";
  for (const ServerRecord& server : records.ListServers()) {
    if (server.id == camera.ownerNdId) return {};
  }
  return "there is no server " + std::to_string(camera.ownerNdId) + "; add it with \"oculora server add\"";
}

int AddCamera(const CameraOptions& options) {
  CameraRecord camera = options.camera;
  camera.id = options.id;
  camera.videoType = VideoTypeByName(options.type);
  std::string error;
  if (camera.ownerNdId == 0) {
    const auto source = NormaliseSource(options.source, &error, camera.videoType);
    if (!source) return Fail(error);
    camera.source = *source;
  } else {
    camera.source = options.source;
  }
  auto records = OpenRecords(Database::Mode::kReadWrite);
  if (!records) return 1;
  if (error = CheckServer(*records, camera); !error.empty()) return Fail(error);
  // One stream serves every way of watching until a camera offers more.
  for (int profile = 0; profile <= kMobileProfile; ++profile) {
    camera.profiles.push_back(options.profile);
    camera.profiles.back().profile = profile;
  }
  const auto id = records->AddCamera(camera);
  if (!id) return Fail(records->LastError());
  printf("%d\n", *id);
  return 0;
}

void PrintAsJson(const std::vector<CameraRecord>& cameras) {
  Json::Value list(Json::arrayValue);
  for (const CameraRecord& camera : cameras) {
    Json::Value entry;
    entry["id"] = camera.id;
    entry["name"] = camera.name;
    entry["type"] = VideoTypeName(camera.videoType);
    entry["source"] = HidePassword(camera.source);
    entry["server"] = camera.ownerNdId;
    entry["remoteId"] = camera.idOnRec;
    entry["enabled"] = camera.enabled;
    entry["stayOn"] = camera.stayOn;
    entry["recordSeconds"] = camera.recordSeconds;
    entry["deleting"] = camera.deleting;
    entry["fps"] = camera.profiles.empty() ? 0 : camera.profiles.front().fps;
    entry["measuredFps"] = camera.MobileProfile().measuredFps;
    list.append(entry);
  }
  printf("%s\n", list.toStyledString().c_str());
}

// Where its pictures come from, for people.
std::string OriginOf(const CameraRecord& camera) {
  if (camera.ownerNdId == 0) return HidePassword(camera.source);
  return "camera " + std::to_string(camera.idOnRec) + " of server " + std::to_string(camera.ownerNdId);
}

int ListCameras(const CameraOptions& options) {
  auto records = OpenRecords(Database::Mode::kReadOnly);
  if (!records) return 1;
  const auto cameras = records->ListCameras();
  if (records->IsUnreadable()) return Fail(records->LastError());
  if (options.json) {
    PrintAsJson(cameras);
    return 0;
  }
  if (cameras.empty()) printf("No cameras yet; add one with \"oculora camera add\".\n");
  for (const CameraRecord& camera : cameras) {
    printf("%6d  %-8s  %-8s  %-24s  %s\n", camera.id, VideoTypeName(camera.videoType),
           camera.deleting  ? "removing"
           : camera.enabled ? "enabled"
                            : "disabled",
           camera.name.c_str(), OriginOf(camera).c_str());
  }
  return 0;
}

// "60" or "off"; nothing for anything else.
std::optional<int> ParseLength(const std::string& text) {
  if (text == "off") return 0;
  int seconds = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), seconds);
  const bool whole = parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
  return whole && seconds > 0 ? std::optional(seconds) : std::nullopt;
}

int SetRecording(const CameraOptions& options) {
  const auto seconds = ParseLength(options.length);
  if (!seconds) return Fail("give the length of a file in seconds, or off");
  auto records = OpenRecords(Database::Mode::kReadWrite);
  const auto camera = records ? LoadCameraOrTell(*records, options.id) : std::nullopt;
  if (!camera) return 1;
  if (camera->ownerNdId != 0) return Fail("camera " + std::to_string(camera->id) + " is recorded by its own server");
  return records->SetCameraRecording(options.id, *seconds) ? 0 : Fail(records->LastError());
}

int SetEnabled(const CameraOptions& options, bool enabled) {
  auto records = OpenRecords(Database::Mode::kReadWrite);
  if (!records || !LoadCameraOrTell(*records, options.id)) return 1;
  return records->SetCameraEnabled(options.id, enabled) ? 0 : Fail(records->LastError());
}

using Options = std::shared_ptr<CameraOptions>;

void AddAdd(CLI::App& group, Action& action, const Options& options) {
  CLI::App* add = group.add_subcommand("add", "Add a camera; prints its id");
  add->add_option("NAME", options->camera.name, "What people see")->required();
  add->add_option("--type", options->type, "What the source sends")
      ->required()
      ->check(CLI::IsMember({"h264", "mjpeg", "mxpeg", "mpeg4"}));
  add->add_option("--source", options->source, "rtsp://, http://, a file (looped), or test:[WIDTHxHEIGHT]");
  add->add_option("--fps", options->profile.fps, "Frames a second")->check(CLI::Range(1, 120));
  add->add_option("--width", options->profile.width, "Picture width")->check(CLI::Range(1, 16384));
  add->add_option("--height", options->profile.height, "Picture height")->check(CLI::Range(1, 16384));
  add->add_option("--id", options->id, "Id to use instead of the next free one")->check(CLI::Range(1, kMaxCameraId));
  add->add_flag("--stay-on", options->camera.stayOn, "Run even when nobody watches");
  add->add_option("--record", options->camera.recordSeconds, "Record all the time, in files of so many seconds")
      ->check(CLI::Range(kMinRecordSeconds, kMaxRecordSeconds));
  add->add_option("--server", options->camera.ownerNdId, "Recording server that owns it")->check(CLI::PositiveNumber);
  add->add_option("--remote-id", options->camera.idOnRec, "Its id there")->check(CLI::Range(1, kMaxCameraId));
  add->callback([=, &action] {
    if (options->source.empty() && options->camera.ownerNdId == 0) throw CLI::RequiredError("--source");
    action = [=] { return AddCamera(*options); };
  });
}

CLI::App* AddById(CLI::App& group, const Options& options, const char* name, const char* help,
                  const std::function<void()>& chosen) {
  CLI::App* command = group.add_subcommand(name, help);
  command->add_option("ID", options->id, "Camera id")->required();
  command->callback(chosen);
  return command;
}

}  // namespace

void AddCameraCommands(CLI::App& app, Action& action) {
  const auto options = std::make_shared<CameraOptions>();
  CLI::App* group = app.add_subcommand("camera", "Add, list, record, remove, enable and disable cameras");
  AddAdd(*group, action, options);
  CLI::App* list = group->add_subcommand("list", "List the cameras");
  list->add_flag("--json", options->json, "As JSON");
  list->callback([=, &action] { action = [=] { return ListCameras(*options); }; });
  AddById(*group, options, "record", "Record a camera all the time, or no longer",
          [=, &action] { action = [=] { return SetRecording(*options); }; })
      ->add_option("SECONDS", options->length, "Length of a file, or off")
      ->required();
  AddById(*group, options, "remove", "Remove a camera and its stream keys", [=, &action] {
    action = [=] { return RemoveCamera(options->id, options->withRecordings); };
  })->add_flag("--with-recordings", options->withRecordings, "And everything recorded of it");
  AddById(*group, options, "enable", "Switch a camera on",
          [=, &action] { action = [=] { return SetEnabled(*options, true); }; });
  AddById(*group, options, "disable", "Switch a camera off",
          [=, &action] { action = [=] { return SetEnabled(*options, false); }; });
}

}  // namespace oculora
