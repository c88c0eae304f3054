// Recorded events of this host, of a mount and of an archive, as the module sees them.
#include "velm/event.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <filesystem>
#include <memory>

#include "capture.h"
#include "records/events.h"
#include "records/storages.h"
#include "velm/camera.h"

using oculora::Database;
using oculora::EventRecord;
using oculora::EventState;
using oculora::EventTable;
using oculora::StorageKind;

namespace {

constexpr char kMount[] = "/tmp/mount", kOldRecords[] = "/tmp/old/records.db";
constexpr int kCamera = 70, kTask = 77;

// Records with a camera of that name, and events 1 (ready), 2 (of a task), 3 (growing), 4 (asked for) and 5 (failed).
std::optional<Database> MakeStorage(const std::string& directory, const char* camera) {
  std::filesystem::create_directories(directory + "/recordings");
  auto records = Database::Open(Database::Mode::kCreate, nullptr, oculora::RecordsPathIn(directory).c_str());
  records->AddCamera({.id = kCamera, .name = camera, .videoType = VIDEO_TYPE_MJPEG, .source = "test:"});
  EventTable events(*records);
  for (const EventRecord& event : {EventRecord{.state = EventState::kReady},
                                   {.type = 1, .deviceType = oculora::kAnalyticsDevice, .task = kTask},
                                   {.state = EventState::kRecording},
                                   {.state = EventState::kRequested},
                                   {.state = EventState::kFailed}}) {
    EventRecord row = event;
    row.camId = kCamera;
    row.path = "clip.avi";
    events.Add(row, nullptr);
  }
  WriteFile(directory + "/recordings/clip.avi", directory);
  return records;
}

void Sql(const std::string& path, const char* sql) {
  sqlite3* connection = nullptr;
  sqlite3_open(path.c_str(), &connection);
  EXPECT_EQ(sqlite3_exec(connection, sql, nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(connection);
}

// One site a program: its records are opened once.
class EventTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    own = MakeStorage(oculora::kVarDir, "own");
    mount = MakeStorage(kMount, "mounted");
    MakeStorage("/tmp/old", "old");
    Sql(kOldRecords, "DROP TABLE events; UPDATE version SET version = 2");
    oculora::StorageTable storages(*own);
    storages.Add({StorageKind::kMount, 4, kMount});
    storages.Add({StorageKind::kArchive, 5, "/tmp/old"});
  }
  static inline std::optional<Database> own, mount;
};

TEST_F(EventTest, LoadsOnlyWhatCanBePlayed) {
  const struct {
    const char* name;
    int type, id, mountId, archId, ndId, result, camId;
  } cases[] = {
      {"ready", 0, 1, 0, 0, 0, 0, kCamera},
      {"growing", 0, 3, 0, 0, 0, 0, kCamera},
      {"asked for", 0, 4, 0, 0, 0, -1, 0},
      {"failed", 0, 5, 0, 0, 0, -1, 0},
      {"unknown", 0, 9, 0, 0, 0, -1, 0},
      {"no number", 0, 0, 0, 0, 0, -1, 0},
      {"of a task", 1, 2, 0, 0, 0, 0, kTask},
      {"of a task, by its id alone", 0, 2, 0, 0, 0, 0, kCamera},
      {"a recording is no alert", 1, 1, 0, 0, 0, -1, 0},
      {"of a server that is not managed", 0, 1, 0, 0, 2, -1, 0},
      {"on a mount", 0, 1, 4, 0, 0, 0, kCamera},
      {"tasks of a mount are not ours", 1, 2, 4, 0, 0, 0, kCamera},
      {"the archive goes first", 0, 1, 4, 5, 0, -1, 0},
      {"unknown mount", 0, 1, 3, 0, 0, -1, 0},
      {"ours again", 0, 1, -1, -1, 0, 0, kCamera},
  };
  const std::string oldRecords = ReadFile(kOldRecords);
  for (const auto& test : cases) {
    const std::unique_ptr<Event> event(RecFactory::NewByType(static_cast<REC_EVENT_TYPE>(test.type)));
    ASSERT_EQ(dynamic_cast<AlertEvent*>(event.get()) != nullptr, test.type == 1);
    int dbArg = -1;
    const int dbType = GetDBType(test.mountId, test.archId, dbArg);
    EXPECT_EQ(event->Load(test.id, dbArg, dbType, test.ndId), test.result) << test.name;
    EXPECT_EQ(event->GetCamId(), test.camId) << test.name;
    std::string path;
    unsigned long long size = 0;
    ASSERT_EQ(GetEventFullPathAndSize(*event, path, size), test.result) << test.name;
    if (test.result != 0) continue;
    EXPECT_EQ(path, (test.mountId > 0 ? std::string(kMount) : oculora::kVarDir) + "/recordings/clip.avi") << test.name;
    EXPECT_EQ(ReadFile(path).size(), size);
  }
  EXPECT_EQ(RecFactory::NewByType(static_cast<REC_EVENT_TYPE>(2)), nullptr);
  EXPECT_EQ(ReadFile(kOldRecords), oldRecords) << "records of others are never brought up to date";
  Camera camera;
  ASSERT_EQ(camera.Load(kCamera, 4, 0), 0);
  EXPECT_EQ(camera.GetName(), "mounted");
  ASSERT_EQ(camera.Load(kCamera, 0, 0), 0);
  EXPECT_EQ(camera.GetName(), "own");
  EXPECT_EQ(camera.Load(kCamera, 3, 0), -1);
}

TEST_F(EventTest, EventsOfServersStandForOneOfTheirCameras) {
  for (const int server : {12, 13, 14}) own->AddServer({server, std::to_string(server), "http://a", "secret"});
  const auto add = [](int id, int server, bool deleting) {
    own->AddCamera({.id = id,
                    .name = std::to_string(id),
                    .videoType = VIDEO_TYPE_MJPEG,
                    .ownerNdId = server,
                    .idOnRec = 3,
                    .deleting = deleting});
  };
  add(80, 12, true);
  add(81, 12, false);
  add(82, 12, false);
  add(83, 13, true);
  const struct {
    int type, id, server, result, camId;
  } cases[] = {{0, 44, 12, 0, 81}, {1, 44, 12, 0, 81}, {0, 0, 12, -1, 0}, {0, 44, 13, 0, 83}, {0, 44, 14, -1, 0}};
  for (const auto& [type, id, server, result, camId] : cases) {
    const std::unique_ptr<Event> event(RecFactory::NewByType(static_cast<REC_EVENT_TYPE>(type)));
    EXPECT_EQ(event->Load(id, 0, 0, server), result) << server;
    EXPECT_EQ(event->GetId(), result == 0 ? id : 0) << server;
    EXPECT_EQ(event->GetCamId(), camId) << server;
  }
  // Nothing of an earlier event stays.
  Event event;
  ASSERT_EQ(event.Load(1, 0, 0, 0), 0);
  ASSERT_EQ(event.Load(44, 0, 0, 12), 0);
  std::string path;
  unsigned long long size = 0;
  EXPECT_EQ(GetEventFullPathAndSize(event, path, size), -1);
}

TEST_F(EventTest, FilesOutsideTheStorageAreRefused) {
  std::filesystem::create_directory(std::string(oculora::kVarDir) + "/recordings/dir..avi");
  for (const char* path :
       {"../records.db", "70/../../records.db", "/var/packages/Oculora/var/records.db", "", "dir..avi"}) {
    const auto id = EventTable(*own).Add({.camId = kCamera, .path = path}, nullptr);
    Event event;
    ASSERT_EQ(event.Load(*id, 0, 0, 0), 0) << path;
    std::string full = "untouched";
    unsigned long long size = 0;
    EXPECT_EQ(GetEventFullPathAndSize(event, full, size), -1) << path;
    EXPECT_EQ(full, "untouched");
  }
}

// While another program holds the records for longer than a viewer would wait.
TEST_F(EventTest, FirstPlaybackIsNotedWithoutWaiting) {
  using Clock = std::chrono::steady_clock;
  Event ours, mounted;
  ASSERT_EQ(ours.Load(1, 0, 0, 0), 0);
  ASSERT_EQ(mounted.Load(1, 4, 1, 0), 0);
  {
    Child other([] {
      sqlite3* connection = nullptr;
      sqlite3_open(oculora::kRecordsPath, &connection);
      sqlite3_exec(connection, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr);
      WriteFile("/tmp/locked", "");
      pause();
    });
    while (!std::filesystem::remove("/tmp/locked")) ASSERT_EQ(other.Wait(5), -1);
    const auto start = Clock::now();
    Event(ours).NotifyFirstChunk();
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(1000));
  }
  EXPECT_EQ(EventTable(*own).Load(1)->played, 0);
  ours.NotifyFirstChunk();
  mounted.NotifyFirstChunk();
  EXPECT_GT(EventTable(*own).Load(1)->played, 0);
  EXPECT_EQ(EventTable(*mount).Load(1)->played, 0);
}

}  // namespace
