// What a site has recorded, and what is being recorded.
#include "admin/recording_summary.h"

#include <sys/statvfs.h>

#include <array>
#include <cstdio>

#include "recorder/recording/disk_room.h"
#include "recorder/recording/housekeeping.h"
#include "records/event_names.h"

namespace oculora {
namespace {

constexpr std::int64_t kMegabyte = 1000000;

std::int64_t FreeMb() {
  struct statvfs disk {};
  // The recordings' own directory is made with the first of them.
  if (statvfs(kRecordingsDir, &disk) != 0 && statvfs(kVarDir, &disk) != 0) return 0;
  return static_cast<std::int64_t>(std::uint64_t{disk.f_bavail} * disk.f_frsize) / kMegabyte;
}

std::string InGb(std::int64_t bytes) {
  std::array<char, 32> text{};
  snprintf(text.data(), text.size(), "%.1f GB", static_cast<double>(bytes) / 1e9);
  return text.data();
}

CameraRecording StateOf(const RecordingSummary& summary, const CameraRecord& camera, bool recorderRuns) {
  const auto noted = summary.cameras.find(camera.id);
  return recorderRuns && noted != summary.cameras.end() ? noted->second : CameraRecording{};
}

}  // namespace

RecordingSummary SummariseRecordings(Database& records) {
  RecordingSummary summary;
  EventTable events(records);
  summary.totals = events.Totals();
  summary.freeMb = FreeMb();
  summary.reserveMb = NumberSetting(records, kReserveSetting, kReserveDefault);
  for (CameraRecording& camera : events.ListCameraStates()) summary.cameras.emplace(camera.camId, std::move(camera));
  return summary;
}

Json::Value SummaryAsJson(const RecordingSummary& summary) {
  Json::Value entry;
  entry["events"] = Json::Int64{summary.totals.events};
  entry["bytes"] = Json::Int64{summary.totals.bytes};
  entry["freeMb"] = Json::Int64{summary.freeMb};
  entry["reserveMb"] = Json::Int64{summary.reserveMb};
  return entry;
}

Json::Value CameraRecordingAsJson(const RecordingSummary& summary, const CameraRecord& camera, bool recorderRuns) {
  const CameraRecording state = StateOf(summary, camera, recorderRuns);
  Json::Value entry;
  entry["mode"] = camera.recordSeconds > 0 ? "continuous" : "off";
  entry["state"] = StateName(state.state);
  entry["reason"] = state.reason;
  return entry;
}

std::string SummaryAsText(const RecordingSummary& summary) {
  return std::to_string(summary.totals.events) + " recordings, " + InGb(summary.totals.bytes) + "; " +
         InGb(summary.freeMb * kMegabyte) + " are free, " + InGb(summary.reserveMb * kMegabyte) + " of them stay so";
}

std::string CameraRecordingAsText(const RecordingSummary& summary, const CameraRecord& camera, bool recorderRuns) {
  const CameraRecording state = StateOf(summary, camera, recorderRuns);
  if (camera.recordSeconds == 0 && state.state == RecordingState::kOff) return {};
  const std::string mode = camera.recordSeconds == 0
                               ? std::string("recorded on demand")
                               : "recorded continuously in files of " + std::to_string(camera.recordSeconds) + " s";
  return mode + ": " + StateName(state.state) + (state.reason.empty() ? "" : ", " + state.reason);
}

}  // namespace oculora
