// Removing a camera with all that belongs to it.
#include "admin/camera_removal.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "admin/command.h"
#include "admin/key_file.h"
#include "recorder/clock.h"
#include "recorder/recording/event_files.h"
#include "records/events.h"

namespace oculora {
namespace {

// A recording process needs some seconds to end, and may note its last file meanwhile.
constexpr std::int64_t kPatienceUs = 60 * std::int64_t{1000000};
constexpr useconds_t kPauseUs = 300000;

// Removes what the camera has recorded up to now. False with a sentence.
bool RemoveRecordings(Database& records, int camId, std::string& reason) {
  EventTable events(records);
  bool good = events.MarkCameraDeleting(camId);
  for (const EventRecord& event : events.ListUnfinished(camId)) {
    std::string trouble;
    if (DeleteEvent(records, event, trouble)) continue;
    // The recorder removes what is marked as well.
    if (!events.Load(event.id) && !records.IsUnreadable()) continue;
    reason = trouble;
    good = false;
  }
  if (!good && reason.empty()) reason = records.LastError();
  return good;
}

int RemoveWithRecordings(Database& records, int camId) {
  if (!records.MarkCameraDeleting(camId)) return Fail(records.LastError());
  const std::int64_t untilUs = MonotonicUs() + kPatienceUs;
  for (std::string reason;; reason.clear()) {
    if (RemoveRecordings(records, camId, reason)) {
      if (records.RemoveCamera(camId)) return 0;
      reason = records.LastError();
    }
    if (MonotonicUs() > untilUs) return Fail(reason + "; try again");
    usleep(kPauseUs);
  }
}

}  // namespace

int RemoveCamera(int id, bool withRecordings) {
  auto records = OpenRecords(Database::Mode::kReadWrite);
  if (!records) return 1;
  const auto camera = LoadCameraOrTell(*records, id);
  if (!camera) return 1;
  const bool recorded = !EventTable(*records).List({.camId = id, .limit = 1}).empty();
  if (recorded && !withRecordings) {
    return Fail("camera " + std::to_string(id) + " has recordings; --with-recordings removes them too");
  }
  // Keys first: should the second step fail, a camera without keys is the harmless half.
  if (!RemoveStreamKeys(camera->ownerNdId, camera->id)) {
    return Fail(std::string("its stream keys in ") + kStreamKeyDir + " cannot be removed: " + std::strerror(errno));
  }
  if (withRecordings) return RemoveWithRecordings(*records, id);
  return records->RemoveCamera(id) ? 0 : Fail(records->LastError());
}

}  // namespace oculora
