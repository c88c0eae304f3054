// An event as the web API and the commands show it.
#include "records/event_json.h"

#include <sys/stat.h>

#include <algorithm>
#include <ctime>

#include "records/event_names.h"

namespace oculora {
namespace {

std::int64_t NowUs() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return std::int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

// The row says nothing of the file yet.
void LookAtRecording(EventRecord& event) {
  struct stat info {};
  if (stat((std::string(kRecordingsDir) + "/" + event.path).c_str(), &info) == 0) event.bytes = info.st_size;
  event.lengthUs = std::max<std::int64_t>(0, NowUs() - event.startUs);
}

}  // namespace

Json::Value DescribeEvent(EventRecord event, const std::string& camera) {
  if (event.state == EventState::kRecording) LookAtRecording(event);
  Json::Value item;
  item["id"] = event.id;
  item["cameraId"] = event.camId;
  item["camera"] = camera;
  item["start"] = Json::Int64{event.startUs / 1000};
  item["length"] = Json::Int64{event.lengthUs / 1000};
  item["bytes"] = Json::Int64{event.bytes};
  item["frames"] = event.frames;
  item["type"] = event.type;
  item["deviceType"] = event.deviceType;
  item["task"] = event.task;
  item["cause"] = CauseName(event.cause);
  item["state"] = StateName(event.state);
  item["reason"] = event.reason;
  item["videoType"] = PicturesName(event.videoType);
  item["file"] = FileKind(event.path);
  item["kept"] = event.kept;
  item["played"] = event.played != 0;
  return item;
}

}  // namespace oculora
