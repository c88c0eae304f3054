// Records: opened in every condition, and what they hold.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "capture.h"
#include "records/events.h"
#include "records/records.h"

using oculora::CameraRecord;
using oculora::Database;
using Mode = oculora::Database::Mode;

namespace {

// An empty records file of its own for each test.
class RecordsTest : public testing::Test {
 protected:
  RecordsTest() { std::filesystem::create_directory("/tmp/records"); }
  ~RecordsTest() override { std::filesystem::remove_all("/tmp/records"); }

  Database Open(Mode mode) const {
    std::string error;
    auto database = Database::Open(mode, &error, m_Path.c_str());
    if (!database) throw std::runtime_error(error);
    return std::move(*database);
  }
  Database Make() const { return Open(Mode::kCreate); }

  // Runs SQL as a program that knows nothing of us, which ends, killed, with what is returned.
  std::unique_ptr<Child> Sql(const char* sql) const {
    auto other = std::make_unique<Child>([&] {
      sqlite3* connection = nullptr;
      sqlite3_open(m_Path.c_str(), &connection);
      if (sqlite3_exec(connection, sql, nullptr, nullptr, nullptr) == SQLITE_OK)
        WriteFile("/tmp/records/done", ""), pause();
    });
    while (!std::filesystem::remove("/tmp/records/done") && other->Wait(5) == -1) continue;
    return other;
  }

  std::string m_Path = "/tmp/records/records.db";
};

CameraRecord Camera(int id, const std::string& name, int videoType = 3,
                    std::vector<oculora::ProfileRecord> profiles = {}) {
  return {.id = id, .name = name, .videoType = videoType, .source = "test:", .profiles = std::move(profiles)};
}

TEST_F(RecordsTest, FailuresAreSentencesThatNameTheFileAndARemedy) {
  const auto expectFailure = [this](Mode mode, const char* says) {
    std::string error;
    EXPECT_FALSE(Database::Open(mode, &error, m_Path.c_str())) << says;
    EXPECT_NE(error.find(says), std::string::npos) << error;
    EXPECT_NE(error.find(m_Path), std::string::npos) << error;
    std::filesystem::remove_all(m_Path);
  };
  expectFailure(Mode::kReadWrite, "oculora init");
  WriteFile(m_Path, std::string(8192, 'x'));
  expectFailure(Mode::kReadWrite, "damaged");
  Make();
  Sql("UPDATE version SET version = 7");
  expectFailure(Mode::kCreate, "version 7");
  m_Path = "/tmp/records/none/records.db";
  expectFailure(Mode::kCreate, "directory");
}

// Whoever meets records of an earlier version first: a program that writes, or a request with its first question.
TEST_F(RecordsTest, EarlierRecordsAreBroughtUpToDateWithWhatTheyHold) {
  for (const auto mode : {Mode::kCreate, Mode::kReadWrite, Mode::kReadOnly}) {
    std::filesystem::remove(m_Path);
    ASSERT_TRUE(Make().AddCamera(Camera(1, "Door", 3, {{2, 1, 7}})));
    Sql("ALTER TABLE camera_profiles DROP COLUMN measured_fps; ALTER TABLE cameras DROP COLUMN record_seconds;"
        "DROP TABLE events; DROP TABLE recording_states; DROP TABLE storages; DROP TABLE IF EXISTS vexa_settings;"
        "UPDATE version SET version = 1");
    Database database = Open(mode);
    const auto camera = database.LoadCamera(1);
    ASSERT_TRUE(camera) << database.LastError();
    EXPECT_EQ(camera->profiles[0].fps, 7);
    EXPECT_EQ(oculora::EventTable(database).Totals().events, 0);
    EXPECT_FALSE(database.IsUnreadable());
    EXPECT_EQ(Make().LoadCamera(1)->profiles[0].measuredFps, 0);
  }
}

// A request that streams for hours keeps its records open: that must not lock a writer out.
TEST_F(RecordsTest, ReadersNeitherWriteNorHoldUpAWriter) {
  Database writer = Make();
  ASSERT_TRUE(writer.AddCamera(Camera(1, "Door")));
  EXPECT_EQ(std::filesystem::status(m_Path).permissions(), std::filesystem::perms(0600));
  const auto version = writer.DataVersion();
  Database reader = Open(Mode::kReadOnly);
  ASSERT_TRUE(reader.LoadCamera(1));
  ASSERT_EQ(reader.ListCameras().size(), 1U);
  EXPECT_TRUE(writer.SetCameraEnabled(1, false)) << writer.LastError();
  EXPECT_FALSE(reader.LoadCamera(1)->enabled || reader.SetCameraEnabled(1, true));
  EXPECT_EQ(writer.DataVersion(), version) << "moves with changes of others only";
  Make().SetCameraEnabled(1, true);
  EXPECT_NE(writer.DataVersion(), version);
  EXPECT_TRUE(reader.LoadCamera(1)->enabled) << "made again, they keep what is there";
}

// The journal of a writer that was killed half-way: a read-only connection may not roll it back by itself.
TEST_F(RecordsTest, ReaderRollsBackWhatAKilledWriterLeft) {
  Make().SetSetting("cms", "1");
  for (const bool openFirst : {false, true}) {
    std::optional<Database> reader;
    if (openFirst) {
      reader = Open(Mode::kReadOnly);
      ASSERT_EQ(reader->GetSetting("cms", ""), "1");
    }
    // A cache this small spills into the file before the commit.
    Sql("PRAGMA cache_size = 1; PRAGMA cache_spill = 1; BEGIN; UPDATE settings SET value = '0';"
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000) "
        "INSERT INTO settings SELECT 'filler' || i, hex(randomblob(100)) FROM n");
    ASSERT_GT(std::filesystem::file_size(m_Path + "-journal"), 0U) << "nothing spilled: the test proves nothing";
    if (!openFirst) reader = Open(Mode::kReadOnly);
    EXPECT_EQ(reader->GetSetting("cms", ""), "1") << reader->LastError();
    EXPECT_EQ(reader->GetSetting("filler1", "gone"), "gone");
    EXPECT_FALSE(reader->IsUnreadable());
  }
}

TEST_F(RecordsTest, LockedRecordsAreWaitedForButNotForEver) {
  Make().SetSetting("cms", "1");
  auto other = Sql("BEGIN EXCLUSIVE");
  std::string error;
  auto hasty = Database::Open(Mode::kReadOnly, &error, m_Path.c_str(), 100);
  EXPECT_EQ(hasty->GetSetting("cms", "none"), "none");
  EXPECT_NE(hasty->LastError().find("locked"), std::string::npos) << hasty->LastError();
  std::thread slowDisk([&] {
    std::this_thread::sleep_for(std::chrono::seconds(3));
    other.reset();
  });
  Database request = Open(Mode::kReadOnly);
  EXPECT_EQ(request.GetSetting("cms", "none"), "1") << request.LastError();
  slowDisk.join();
}

TEST_F(RecordsTest, ListHoldsEachCameraOnceWithItsProfiles) {
  Database database = Make();
  ASSERT_EQ(database.AddCamera(Camera(0, "Gate ö'\"", 3, {{0, 0, 25}, {1, 1}, {2, 1}})), 1);
  ASSERT_EQ(database.AddCamera(Camera(0, "B")), 2);
  EXPECT_TRUE(database.SetMeasuredFps(1, 12)) << database.LastError();
  const auto cameras = database.ListCameras();
  ASSERT_EQ(cameras.size(), 2U);
  std::vector<int> rates;  // the declared one, or else the measured one
  for (const auto& profile : cameras[0].profiles) rates.push_back(profile.KnownFps());
  EXPECT_EQ(rates, (std::vector<int>{25, 12, 12}));
  EXPECT_TRUE(cameras[0].name == "Gate ö'\"" && cameras[1].profiles.empty());
  EXPECT_TRUE(database.RemoveCamera(1));
  EXPECT_FALSE(database.RemoveCamera(1) || database.SetCameraEnabled(1, true));
  EXPECT_EQ(database.AddCamera(Camera(1, "A")), 1);
  EXPECT_TRUE(database.LoadCamera(1)->profiles.empty()) << "profiles of a removed camera came back";
}

TEST_F(RecordsTest, WrongCamerasAreRefusedWithAReason) {
  Database database = Make();
  ASSERT_TRUE(database.AddCamera(Camera(1, "Door")));
  for (const CameraRecord& wrong :
       {Camera(1, "id taken"), Camera(2, "Door"), Camera(2, ""), Camera(2, "line\nend"),
        Camera(262144, "id beyond the ring names"), Camera(-1, "negative"), Camera(2, "unknown type", 4),
        Camera(2, "stream beyond the ring names", 1, {{0, 16}}), Camera(2, "profile twice", 1, {{0}, {0}})}) {
    EXPECT_FALSE(database.AddCamera(wrong)) << wrong.name;
    EXPECT_NE(database.LastError(), "") << wrong.name;
    EXPECT_EQ(database.ListCameras().size(), 1U) << wrong.name << ": half a camera stayed";
  }
  EXPECT_FALSE(database.IsUnreadable()) << "a refusal is not a broken file";
}

TEST_F(RecordsTest, UsersAreNumberedAboveTheSystemAndReplacedByName) {
  Database database = Make();
  ASSERT_TRUE(database.AddUser({.name = "anna", .admin = true}, "hash1")) << database.LastError();
  const int uid = database.FindUser("anna")->uid;
  EXPECT_GT(uid, 1024);
  for (const char* nobody : {"Anna", "carl", "anna' OR '1'='1"}) EXPECT_FALSE(database.FindUser(nobody)) << nobody;
  for (const char* bad : {"", "two words", "line\nend", "\x7f"}) EXPECT_FALSE(database.AddUser({.name = bad}, "h"));
  ASSERT_TRUE(database.AddSession("s", uid, 100, 200));
  ASSERT_TRUE(database.AddUser({.name = "anna", .operations = 0x80000000U}, "hash2"));
  const auto anna = *database.FindUserByUid(uid);
  EXPECT_TRUE(anna.name == "anna" && !anna.admin && anna.operations == 0x80000000U);
  EXPECT_EQ(database.PasswordHash("anna"), "hash2");
  EXPECT_FALSE(database.FindSession("s", 150)) << "a session outlived its password";
  EXPECT_FALSE(database.AddSession("stranger", 4711, 100, 200)) << "a session of nobody";
  ASSERT_TRUE(database.AddSession("one", uid, 100, 200) && database.AddSession("two", uid, 100, 300));
  EXPECT_EQ(database.FindSession("one", 199)->user.name, "anna");
  EXPECT_FALSE(database.FindSession("one", 200) || database.FindSession("ONE", 150));
  EXPECT_TRUE(database.RemoveExpiredSessions(200));
  EXPECT_FALSE(database.RemoveSession("one"));
  EXPECT_TRUE(database.RemoveSession("two"));
}

TEST_F(RecordsTest, GuessingPasswordsIsSlowedDownPerAddress) {
  Database database = Make();
  for (int i = 0; i < Database::kFreeAttempts; ++i) ASSERT_EQ(database.BeginLogin("1.2.3.4", 1000), 0) << i;
  const std::pair<int, int> waits[] = {{1000, 60}, {1059, 1}, {1060, 0}, {1061, 59}, {500, 60}};  // a clock set back
  for (const auto& [now, wait] : waits) EXPECT_EQ(database.BeginLogin("1.2.3.4", now), wait) << now;
  EXPECT_EQ(database.BeginLogin("5.6.7.8", 1000), 0) << "another address pays";
  EXPECT_TRUE(database.ForgetLoginFailures("1.2.3.4"));
  EXPECT_EQ(database.BeginLogin("1.2.3.4", 1061), 0);
}

}  // namespace
