// Printing the status.
#include "admin/status.h"

#include <json/json.h>

#include <cmath>
#include <cstdio>

#include "admin/camera_source.h"
#include "admin/camera_state.h"
#include "admin/command.h"
#include "admin/recording_summary.h"
#include "front/listener.h"
#include "front/serve.h"
#include "recorder/clock.h"
#include "records/camera_names.h"
#include "servers/asking.h"
#include "velm/process.h"

namespace oculora {
namespace {

constexpr int kObserveMs = 1000;
constexpr int kAskSeconds = 4;

struct Programs {
  bool recorder = false;
  bool front = false;
  std::string address;  // of the front, empty when it does not run
  int port = 0;
};

Programs LookAtPrograms() {
  Programs programs;
  programs.recorder = ProcAliveByPidFile(kRecorderPidPath);
  programs.front = ProcAliveByPidFile(kFrontPidPath);
  if (!programs.front || !ReadServeAddress(&programs.address, &programs.port)) programs.address.clear();
  return programs;
}

// Seconds since the newest frame, which there is.
double FrameAge(const RingStatus& status) { return static_cast<double>(MonotonicUs() - status.lastFrameUs) / 1e6; }

double Rounded(double value) { return std::round(value * 10) / 10; }

Json::Value StreamAsJson(const StreamState& stream) {
  Json::Value entry;
  entry["stream"] = stream.id.streamNo;
  entry["kind"] = stream.id.kind == RingKind::kAudio ? "audio" : "video";
  entry["ring"] = stream.exists;
  if (!stream.exists) return entry;
  entry["viewers"] = stream.status.readers;
  entry["fps"] = Rounded(stream.fps);
  entry["frames"] = Json::UInt64{stream.status.framesWritten};
  entry["dropped"] = Json::UInt64{stream.status.framesDropped};
  entry["newest"] = stream.status.newestSeq;
  entry["lastFrameAge"] = stream.status.lastFrameUs == 0 ? Json::Value() : Rounded(FrameAge(stream.status));
  return entry;
}

Json::Value CameraAsJson(const CameraState& camera) {
  Json::Value entry;
  entry["id"] = camera.camera.id;
  entry["name"] = camera.camera.name;
  entry["type"] = VideoTypeName(camera.camera.videoType);
  entry["state"] = camera.state;
  entry["reason"] = camera.reason;
  const ProfileRecord live = camera.camera.MobileProfile();
  entry["declaredFps"] = live.fps;
  entry["measuredFps"] = live.measuredFps;
  entry["hls"] = Json::Value();
  if (camera.remux) {
    entry["hls"]["pid"] = camera.remux->pid;
    entry["hls"]["viewers"] = camera.remux->viewers;
  }
  entry["streams"] = Json::Value(Json::arrayValue);
  for (const StreamState& stream : camera.streams) entry["streams"].append(StreamAsJson(stream));
  return entry;
}

Json::Value ServerAsJson(const ServerState& state) {
  Json::Value entry;
  entry["id"] = state.server.id;
  entry["name"] = state.server.name;
  entry["url"] = state.server.url;
  entry["state"] = state.told ? "up" : "down";
  entry["reason"] = state.reason;
  entry["recorder"] = state.told && state.told->recorderRuns;
  entry["clockAhead"] = state.clockAheadSeconds ? Json::Value(Json::Int64{*state.clockAheadSeconds}) : Json::Value();
  return entry;
}

void PrintJson(const Programs& programs, const RecordingSummary& recordings, const std::vector<CameraState>& cameras,
               const std::vector<ServerState>& servers) {
  Json::Value root;
  root["recorder"]["running"] = programs.recorder;
  root["front"]["running"] = programs.front;
  root["front"]["address"] = programs.address;
  root["front"]["port"] = programs.port;
  root["cameras"] = Json::Value(Json::arrayValue);
  root["recordings"] = SummaryAsJson(recordings);
  for (const CameraState& camera : cameras) {
    Json::Value entry = CameraAsJson(camera);
    entry["recording"] = CameraRecordingAsJson(recordings, camera.camera, programs.recorder);
    root["cameras"].append(std::move(entry));
  }
  root["servers"] = Json::Value(Json::arrayValue);
  for (const ServerState& server : servers) root["servers"].append(ServerAsJson(server));
  Json::StreamWriterBuilder writer;
  writer["precision"] = 6;
  writer["emitUTF8"] = true;
  printf("%s\n", Json::writeString(writer, root).c_str());
}

// "h264", and the rate that is known beforehand.
std::string KindOf(const CameraRecord& camera) {
  const ProfileRecord live = camera.MobileProfile();
  std::string kind = VideoTypeName(camera.videoType);
  if (live.KnownFps() == 0) return kind;
  return kind + ", " + std::to_string(live.KnownFps()) + " frames/s" + (live.fps > 0 ? "" : " measured");
}

void PrintStream(const StreamState& stream) {
  const RingStatus& status = stream.status;
  printf("  %s %d: %d reading, %.1f frames/s, %llu frames, %llu dropped",
         stream.id.kind == RingKind::kAudio ? "sound" : "stream", stream.id.streamNo, status.readers, stream.fps,
         static_cast<unsigned long long>(status.framesWritten), static_cast<unsigned long long>(status.framesDropped));
  if (status.lastFrameUs != 0) printf(", the last %.1f s ago", FrameAge(status));
  printf("\n");
}

void PrintServer(const ServerState& state) {
  printf("server %d \"%s\", %s: %s%s%s%s\n", state.server.id, state.server.name.c_str(), state.server.url.c_str(),
         state.told ? "up" : "down", state.reason.empty() ? "" : ", ", state.reason.c_str(),
         state.told && !state.told->recorderRuns ? ", its recorder is not running" : "");
}

void PrintTable(const Programs& programs, const RecordingSummary& recordings, const std::vector<CameraState>& cameras,
                const std::vector<ServerState>& servers) {
  printf("recorder    %s\n", programs.recorder ? "running" : "not running");
  const std::string where = programs.address.empty() ? "" : DescribeAddresses(programs.address, programs.port);
  printf("web server  %s%s%s\n", programs.front ? "running" : "not running", where.empty() ? "" : ", ", where.c_str());
  printf("recordings  %s\n", SummaryAsText(recordings).c_str());
  for (const ServerState& server : servers) PrintServer(server);
  if (cameras.empty()) printf("no cameras\n");
  for (const CameraState& camera : cameras) {
    printf("camera %d \"%s\" (%s): %s%s%s\n", camera.camera.id, camera.camera.name.c_str(),
           KindOf(camera.camera).c_str(), camera.state.c_str(), camera.reason.empty() ? "" : ", ",
           camera.reason.c_str());
    if (camera.remux) {
      printf("  HLS: %d watching, process %d, the last slice fetched %ld s ago\n", camera.remux->viewers,
             camera.remux->pid, camera.remux->untouchedSeconds);
    }
    const std::string recording = CameraRecordingAsText(recordings, camera.camera, programs.recorder);
    if (!recording.empty()) printf("  %s\n", recording.c_str());
    for (const StreamState& stream : camera.streams) {
      if (stream.exists) PrintStream(stream);
    }
  }
}

}  // namespace

int PrintStatus(bool asJson) {
  auto records = OpenRecords(Database::Mode::kReadOnly);
  if (!records) return 1;
  const auto cameras = records->ListCameras();
  const auto servers = records->ListServers();
  const RecordingSummary recordings = SummariseRecordings(*records);
  if (records->IsUnreadable()) return Fail(records->LastError());
  const Programs programs = LookAtPrograms();
  const auto states = ObserveCameras(cameras, programs.recorder, kObserveMs);
  const auto serverStates = AskServers(servers, kAskSeconds);
  if (asJson) {
    PrintJson(programs, recordings, states, serverStates);
  } else {
    PrintTable(programs, recordings, states, serverStates);
  }
  return 0;
}

}  // namespace oculora
