// oculora event: recorded events, and recording on demand.
#include <json/json.h>
#include <unistd.h>

#include <array>
#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <map>
#include <memory>

#include "admin/command.h"
#include "admin/event_import.h"
#include "admin/utc_time.h"
#include "recorder/clock.h"
#include "records/event_json.h"
#include "records/event_names.h"
#include "records/recording_request.h"
#include "velm/admission.h"

namespace oculora {
namespace {

constexpr int kPage = 500;
constexpr useconds_t kLookUs = 200000;
constexpr int kStartSeconds = 60;  // until the camera's first picture; the recorder gives up earlier

struct EventOptions {
  int camera = 0;
  int seconds = 0;
  std::vector<int> ids;
  ImportRequest import;
  std::string start;
  bool json = false;
  bool wait = false;
  bool off = false;
};

// Tells what the records said; the exit code of a failure.
int FailBy(const Database& records) { return Fail(records.LastError()); }

void PrintLine(const EventRecord& event, const std::string& camera, bool) {
  const Json::Value now = DescribeEvent(event, camera);
  std::array<char, 32> start{};
  const auto seconds = static_cast<time_t>(event.startUs / 1000000);
  tm local{};
  strftime(start.data(), start.size(), "%Y-%m-%d %H:%M:%S", localtime_r(&seconds, &local));
  printf("%6d  %s  %6.0f s  %8.1f MB  %-9s  %-5s  %s%s%s%s\n", event.id, start.data(), now["length"].asDouble() / 1e3,
         now["bytes"].asDouble() / 1e6, StateName(event.state), now["file"].asCString(), camera.c_str(),
         event.kept ? ", kept" : "", event.reason.empty() ? "" : ": ", event.reason.c_str());
}

void PrintJson(const EventRecord& event, const std::string& camera, bool first) {
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  writer["emitUTF8"] = true;
  printf("%s%s", first ? "" : ",\n", Json::writeString(writer, DescribeEvent(event, camera)).c_str());
}

int ListEvents(const EventOptions& options) {
  auto records = OpenRecords(Database::Mode::kReadOnly);
  if (!records || (options.camera != 0 && !LoadCameraOrTell(*records, options.camera))) return 1;
  std::map<int, std::string> names;
  for (const CameraRecord& camera : records->ListCameras()) names[camera.id] = camera.name;
  EventQuery query{.camId = options.camera, .limit = kPage};
  bool first = true;
  if (options.json) printf("[");
  for (;;) {
    const auto events = EventTable(*records).List(query);
    if (events.empty()) break;
    for (const EventRecord& event : events) {
      (options.json ? PrintJson : PrintLine)(event, names[event.camId], first);
      first = false;
    }
    query.afterStartUs = events.back().startUs;
    query.afterId = events.back().id;
  }
  if (options.json) printf("]\n");
  if (records->IsUnreadable()) return FailBy(*records);
  if (first && !options.json) printf("Nothing was recorded yet.\n");
  return 0;
}

// Until the recording is whole; the exit code.
int WaitForEvent(Database& records, int id, int seconds) {
  const std::int64_t untilUs = MonotonicUs() + std::int64_t{seconds + kStartSeconds} * 1000000;
  while (MonotonicUs() < untilUs) {
    const auto event = EventTable(records).Load(id);
    if (!event) return Fail(records.IsUnreadable() ? records.LastError() : "the recording was removed");
    if (event->state == EventState::kReady) return 0;
    if (event->state == EventState::kFailed) return Fail("event " + std::to_string(id) + " failed: " + event->reason);
    if (!IsQmRunning()) return Fail("the recorder has stopped");
    usleep(kLookUs);
  }
  return Fail("event " + std::to_string(id) + " is not ready yet; see \"oculora event list\"");
}

int RecordEvent(const EventOptions& options) {
  auto records = OpenRecords(Database::Mode::kReadWrite);
  if (!records) return 1;
  RecordingRefusal refusal;
  const auto id = RequestRecording(*records, options.camera, options.seconds, WallClockUs(), refusal);
  if (!id) return Fail(refusal.text);
  printf("%d\n", *id);
  fflush(stdout);
  return options.wait ? WaitForEvent(*records, *id, options.seconds) : 0;
}

int ImportFile(const EventOptions& options) {
  ImportRequest request = options.import;
  if (!options.start.empty()) {
    const auto seconds = ParseUtcTime(options.start);
    if (!seconds) return Fail("--start takes a time of UTC like 2026-11-21T15:42:10, or seconds since 1970");
    request.startUs = *seconds * 1000000;
  }
  auto records = OpenRecords(Database::Mode::kReadWrite);
  if (!records || !LoadCameraOrTell(*records, request.event.camId)) return 1;
  std::string reason;
  const auto id = ImportEvent(*records, request, reason);
  if (!id) return Fail(reason);
  printf("%d\n", *id);
  return 0;
}

// Does the same to every event that was named; goes on after a failure.
template <typename Change>
int ChangeEvents(const EventOptions& options, Change change) {
  auto records = OpenRecords(Database::Mode::kReadWrite);
  if (!records) return 1;
  EventTable events(*records);
  int code = 0;
  for (const int id : options.ids) {
    if (!change(events, id)) code = FailBy(*records);
  }
  return code;
}

using Options = std::shared_ptr<EventOptions>;

CLI::App* AddForIds(CLI::App& group, const Options& options, const char* name, const char* help, int most) {
  CLI::App* command = group.add_subcommand(name, help);
  command->add_option("ID", options->ids, "Event id")->required()->expected(1, most);
  return command;
}

void AddRecord(CLI::App& group, Action& action, const Options& options) {
  CLI::App* record = group.add_subcommand("record", "Record a camera now; prints the event's id");
  record->add_option("CAMERA", options->camera, "Camera id")->required();
  record->add_option("SECONDS", options->seconds, "How long")->required()->check(CLI::Range(1, kMaxRecordSeconds));
  record->add_flag("--wait", options->wait, "Until it is ready");
  record->callback([=, &action] { action = [=] { return RecordEvent(*options); }; });
}

void AddImport(CLI::App& group, Action& action, const Options& options) {
  ImportRequest& import = options->import;
  CLI::App* command = group.add_subcommand("import", "Take a video file into the recordings; prints the event's id");
  command->add_option("CAMERA", import.event.camId, "Camera it shall belong to")->required();
  command->add_option("FILE", import.file, "The file; it is copied")->required();
  command->add_option("--type", import.event.type, "0 a recording, 1 raised by an alert")->check(CLI::Range(0, 1));
  command->add_option("--device-type", import.event.deviceType, "Of the alert's source; 1024 is an analytics task")
      ->check(CLI::NonNegativeNumber);
  command->add_option("--task", import.event.task, "The analytics task that raised it")->check(CLI::NonNegativeNumber);
  command->add_option("--start", options->start, "When it begins, UTC; without it, it ends now");
  command->add_flag("--keep", import.event.kept, "Spare it when old recordings are deleted");
  command->callback([=, &action] { action = [=] { return ImportFile(*options); }; });
}

}  // namespace

void AddEventCommands(CLI::App& app, Action& action) {
  const auto options = std::make_shared<EventOptions>();
  CLI::App* group = app.add_subcommand("event", "List, record, import, keep and remove recordings");
  CLI::App* list = group->add_subcommand("list", "List the recordings, the newest first");
  list->add_option("--camera", options->camera, "Of one camera")->check(CLI::PositiveNumber);
  list->add_flag("--json", options->json, "As JSON");
  list->callback([=, &action] { action = [=] { return ListEvents(*options); }; });
  AddRecord(*group, action, options);
  AddImport(*group, action, options);
  AddForIds(*group, options, "stop", "End a recording that was asked for", 1)->callback([=, &action] {
    action = [=] { return ChangeEvents(*options, [](EventTable& events, int id) { return events.Stop(id); }); };
  });
  AddForIds(*group, options, "remove", "Remove recordings and their files", 10000)->callback([=, &action] {
    action = [=] { return ChangeEvents(*options, [](EventTable& events, int id) { return events.MarkDeleting(id); }); };
  });
  CLI::App* keep = AddForIds(*group, options, "keep", "Spare a recording when old ones are deleted", 1);
  keep->add_flag("--off", options->off, "No longer");
  keep->callback([=, &action] {
    action = [=] {
      return ChangeEvents(*options, [=](EventTable& events, int id) { return events.SetKept(id, !options->off); });
    };
  });
}

}  // namespace oculora
