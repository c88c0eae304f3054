// Checks of recordings.
#include "admin/doctor_recordings.h"

#include <sys/stat.h>

#include <cstdio>
#include <unordered_set>

#include "admin/command.h"
#include "recorder/recording/disk_room.h"
#include "recorder/recording/event_files.h"
#include "recorder/recording/housekeeping.h"
#include "recorder/recording/recovery.h"
#include "recorder/recording/stray_files.h"
#include "records/events.h"
#include "velm/file.h"
#include "velm/process.h"

namespace oculora {
namespace {

constexpr int kPage = 500;
constexpr char kRepair[] = "stop the recorder and run \"oculora doctor --repair\"";

// What the rows of the site say, held against the files.
struct Inventory {
  std::unordered_set<std::string> paths;  // that rows name, with their thumbnails
  int rows = 0;
  int missing = 0;
  int failed = 0;
  std::string firstMissing, lastFailure;
  int strays = 0;
  std::string firstStray;
};

void TakeRow(Inventory& inventory, const EventRecord& event) {
  ++inventory.rows;
  if (event.state == EventState::kFailed && inventory.failed++ == 0) {
    inventory.lastFailure = "event " + std::to_string(event.id) + ": " + event.reason;
  }
  if (event.path.empty()) return;
  inventory.paths.insert(event.path);
  inventory.paths.insert(ThumbnailPath(event.path));
  struct stat info {};
  if (event.state != EventState::kReady || stat(FullPath(event.path).c_str(), &info) == 0) return;
  if (inventory.missing++ == 0) inventory.firstMissing = event.path;
}

void TakeRows(Inventory& inventory, Database& records) {
  EventTable events(records);
  EventQuery query{.limit = kPage};
  for (auto page = events.List(query); !page.empty(); page = events.List(query)) {
    for (const EventRecord& event : page) TakeRow(inventory, event);
    query.afterStartUs = page.back().startUs;
    query.afterId = page.back().id;
  }
  for (const EventRecord& event : events.ListUnfinished(0)) {
    inventory.paths.insert(event.path);
    inventory.paths.insert(ThumbnailPath(event.path));
  }
}

void TakeFiles(Inventory& inventory, Database& records, const std::vector<CameraRecord>& cameras) {
  for (const CameraRecord& camera : cameras) {
    for (const std::string& path : ListCameraFiles(camera.id)) {
      if (inventory.paths.contains(path)) continue;
      // Its row may be younger than the list, or gone meanwhile with the file.
      const auto row = EventTable(records).Load(ReadStrayName(path).eventId);
      struct stat info {};
      if (row || stat(FullPath(path).c_str(), &info) != 0) continue;
      if (inventory.strays++ == 0) inventory.firstStray = path;
    }
  }
}

std::string Count(int number, const char* what) { return std::to_string(number) + " " + what; }

void CheckUnfinished(Findings& findings, Database& records) {
  if (ProcAliveByPidFile(kRecorderPidPath)) return;
  const std::size_t unfinished = EventTable(records).ListUnfinished(0).size();
  if (unfinished == 0) return;
  NoteWarning(findings, std::to_string(unfinished) + " recordings are not finished, and the recorder does not run",
              "it completes them when it starts, \"oculora doctor --repair\" does so now");
}

void CheckInventory(Findings& findings, const Inventory& inventory) {
  if (inventory.missing > 0) {
    NoteFailure(findings, Count(inventory.missing, "recordings have lost their file, like ") + inventory.firstMissing,
                std::string("bring the disk back; if the files are gone for good, ") + kRepair);
  }
  if (inventory.strays > 0) {
    NoteWarning(findings, Count(inventory.strays, "files belong to no recording, like ") + inventory.firstStray,
                kRepair);
  }
  if (inventory.failed > 0) {
    NoteWarning(findings, Count(inventory.failed, "recordings failed, the latest one, ") + inventory.lastFailure,
                "see to the reason; \"oculora event remove\" removes them");
  }
  if (inventory.missing == 0 && inventory.strays == 0) {
    NoteOk(findings, Count(inventory.rows, "recordings, and the files agree with the records"));
  }
}

void CheckStates(Findings& findings, Database& records) {
  if (!ProcAliveByPidFile(kRecorderPidPath)) return;
  for (const CameraRecording& camera : EventTable(records).ListCameraStates()) {
    if (camera.state != RecordingState::kFailed) continue;
    NoteFailure(findings, "camera " + std::to_string(camera.camId) + " is not recorded", camera.reason);
  }
}

}  // namespace

void CheckRecordings(Findings& findings, const std::vector<CameraRecord>& cameras) {
  std::string error;
  auto records = Database::Open(Database::Mode::kReadOnly, &error);
  if (!records) return;  // told by the check of records
  Inventory inventory;
  TakeRows(inventory, *records);
  TakeFiles(inventory, *records, cameras);
  if (records->IsUnreadable()) return NoteFailure(findings, "the recordings cannot be listed", records->LastError());
  CheckInventory(findings, inventory);
  CheckUnfinished(findings, *records);
  CheckStates(findings, *records);
  const std::int64_t reserveMb = NumberSetting(*records, kReserveSetting, kReserveDefault);
  if (const std::string lack = LackOfRoom(reserveMb); !lack.empty()) {
    NoteFailure(findings, "nothing can be recorded", lack + "; make room, or see \"oculora retention\"");
  }
}

int RepairRecordings() {
  // What the recorder holds while it runs, so that none starts meanwhile.
  QmFlock lock(std::string(kRecorderPidPath) + ".lock");
  if (lock.LockEx(0) != 0) return Fail("the recorder is running; stop it first");
  auto records = OpenRecords(Database::Mode::kReadWrite);
  if (!records) return 1;
  int sentences = 0;
  const bool done = RecoverRecordings(*records, 0, [&sentences](const std::string& sentence) {
    printf("%s\n", sentence.c_str());
    ++sentences;
  });
  if (!done) return Fail("not everything could be repaired");
  if (sentences == 0) printf("There was nothing to repair.\n");
  return 0;
}

}  // namespace oculora
