// Opening records: made, missing, damaged, locked, left in the middle of a transaction.
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "capture.h"
#include "records_fixture.h"

using oculora::Database;

namespace {

// Runs SQL as a program that knows nothing of us.
void Sql(const std::string& path, const char* sql) {
  sqlite3* connection = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &connection), SQLITE_OK);
  char* error = nullptr;
  EXPECT_EQ(sqlite3_exec(connection, sql, nullptr, nullptr, &error), SQLITE_OK) << error;
  sqlite3_free(error);
  sqlite3_close(connection);
}

TEST_F(RecordsTest, OnlyTheOwnerMayReadTheFile) {
  umask(0);
  Make();
  struct stat info {};
  ASSERT_EQ(stat(m_Path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600U);
}

TEST_F(RecordsTest, MakingThemAgainKeepsWhatIsThere) {
  Make().SetSetting("cms", "1");
  EXPECT_EQ(Make().GetSetting("cms", "0"), "1");
}

TEST_F(RecordsTest, FailuresAreSentencesThatNameTheFileAndARemedy) {
  const struct {
    const char* name;
    std::function<void()> prepare;
    Database::Mode mode;
    const char* says;
  } cases[] = {
      {"missing, read-only", [] {}, Database::Mode::kReadOnly, "oculora init"},
      {"missing, for writing", [] {}, Database::Mode::kReadWrite, "oculora init"},
      {"no directory", [this] { m_Path = m_Directory + "/none/records.db"; }, Database::Mode::kCreate, "directory"},
      {"empty", [this] { WriteFile(m_Path, ""); }, Database::Mode::kReadWrite, "oculora init"},
      {"garbage", [this] { WriteFile(m_Path, std::string(8192, 'x')); }, Database::Mode::kReadWrite, "damaged"},
      {"newer", [this] { Make(), Sql(m_Path, "UPDATE version SET version = 7"); }, Database::Mode::kCreate,
       "version 7"},
      {"a directory", [this] { std::filesystem::create_directory(m_Path); }, Database::Mode::kReadOnly,
       "cannot be read"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    std::filesystem::remove_all(m_Path);
    m_Path = m_Directory + "/records.db";
    test.prepare();
    std::string error;
    EXPECT_FALSE(Database::Open(test.mode, &error, m_Path.c_str()));
    EXPECT_NE(error.find(test.says), std::string::npos) << error;
    EXPECT_NE(error.find(m_Path), std::string::npos) << error;
  }
}

// Whoever meets records of an earlier version first: a program that writes, or a request with its first question.
TEST_F(RecordsTest, EarlierRecordsAreBroughtUpToDateWithWhatTheyHold) {
  for (const auto mode : {Database::Mode::kCreate, Database::Mode::kReadWrite, Database::Mode::kReadOnly}) {
    std::filesystem::remove(m_Path);
    ASSERT_TRUE(Make().AddCamera({.name = "Door", .videoType = 3, .source = "test:", .profiles = {{2, 1, 7}}}));
    Sql(m_Path, "ALTER TABLE camera_profiles DROP COLUMN measured_fps; UPDATE version SET version = 1");
    Database database = Open(mode);
    const auto camera = database.LoadCamera(1);
    ASSERT_TRUE(camera) << database.LastError();
    EXPECT_EQ(camera->profiles[0].fps, 7);
    EXPECT_FALSE(database.IsUnreadable());
    EXPECT_EQ(Make().LoadCamera(1)->profiles[0].measuredFps, 0);
  }
}

// A reader checks nothing when it opens: it finds out with its first question.
TEST_F(RecordsTest, ReaderOfDamagedRecordsFindsNothingAndSaysWhy) {
  WriteFile(m_Path, std::string(8192, 'x'));
  Database reader = Reader();
  EXPECT_FALSE(reader.IsUnreadable());
  EXPECT_FALSE(reader.LoadCamera(1));
  EXPECT_TRUE(reader.IsUnreadable());
  EXPECT_NE(reader.LastError().find("damaged"), std::string::npos) << reader.LastError();
}

TEST_F(RecordsTest, ReaderNeedsNoWritePermissionAndWritesNothing) {
  Make().SetSetting("cms", "1");
  Database reader = Reader();
  EXPECT_EQ(reader.GetSetting("cms", ""), "1");
  EXPECT_FALSE(reader.SetSetting("cms", "0"));
  EXPECT_EQ(Reader().GetSetting("cms", ""), "1");
}

// A request that streams for hours keeps its records open: that must not lock a writer out.
TEST_F(RecordsTest, OpenReaderDoesNotHoldUpAWriter) {
  Database writer = Make();
  ASSERT_TRUE(writer.AddCamera({.name = "Door", .videoType = 1, .source = "test:"}));
  Database reader = Reader();
  ASSERT_TRUE(reader.LoadCamera(1));
  ASSERT_EQ(reader.ListCameras().size(), 1U);
  EXPECT_TRUE(writer.SetCameraEnabled(1, false)) << writer.LastError();
  EXPECT_FALSE(reader.LoadCamera(1)->enabled);
}

// From another process: file locks do not hold between two copies of the library in one.
TEST_F(RecordsTest, LockedRecordsAreAnErrorAfterTheTimeout) {
  Database reader = (Make(), Reader());
  {
    Child other([&] {
      sqlite3* database = nullptr;
      sqlite3_open(m_Path.c_str(), &database);
      sqlite3_exec(database, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr);
      WriteFile(m_Path + ".locked", "");
      pause();
    });
    while (!std::filesystem::exists(m_Path + ".locked")) usleep(1000);
    EXPECT_EQ(reader.GetSetting("cms", "none"), "none");
    EXPECT_NE(reader.LastError().find("locked"), std::string::npos) << reader.LastError();
  }
  EXPECT_EQ(reader.GetSetting("cms", "none"), "none");
}

// The journal of a writer that was killed half-way: a read-only connection may not roll it back by itself.
TEST_F(RecordsTest, ReaderRollsBackWhatAKilledWriterLeft) {
  Make().SetSetting("cms", "1");
  const auto halfWay = [this] {
    sqlite3* connection = nullptr;
    sqlite3_open(m_Path.c_str(), &connection);
    // A cache this small spills into the file before the commit.
    sqlite3_exec(connection,
                 "PRAGMA cache_size = 1; PRAGMA cache_spill = 1; BEGIN; UPDATE settings SET value = '0';"
                 "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000) "
                 "INSERT INTO settings SELECT 'filler' || i, hex(randomblob(100)) FROM n",
                 nullptr, nullptr, nullptr);
    _exit(0);
  };
  for (const bool openFirst : {false, true}) {
    SCOPED_TRACE(openFirst);
    std::optional<Database> reader;
    if (openFirst) {
      reader = Reader();
      ASSERT_EQ(reader->GetSetting("cms", ""), "1");
    }
    ASSERT_NE(Child(halfWay).Wait(20000), -1);
    ASSERT_GT(std::filesystem::file_size(m_Path + "-journal"), 0U) << "nothing spilled: the test proves nothing";
    if (!openFirst) reader = Reader();
    EXPECT_EQ(reader->GetSetting("cms", ""), "1") << reader->LastError();
    EXPECT_EQ(reader->GetSetting("filler1", "gone"), "gone");
    EXPECT_FALSE(reader->IsUnreadable());
  }
}

TEST_F(RecordsTest, DataVersionMovesWithChangesOfOthersOnly) {
  Database poller = Make();
  const auto start = poller.DataVersion();
  poller.SetSetting("cms", "1");
  EXPECT_EQ(poller.DataVersion(), start);
  Make().SetSetting("cms", "0");
  EXPECT_NE(poller.DataVersion(), start);
}

}  // namespace
