// What the records hold: cameras, users, sessions, servers.
#include "records_fixture.h"

using oculora::CameraRecord;
using oculora::Database;
using oculora::UserRecord;

namespace {

TEST_F(RecordsTest, CameraComesBackAsItWasAdded) {
  Database database = Make();
  CameraRecord camera{.id = 7,
                      .name = "Gate ö'\"",
                      .videoType = 5,
                      .source = "http://u:p@host/mx",
                      .ownerNdId = 3,
                      .idOnRec = 12,
                      .enabled = false,
                      .deleting = true,
                      .stayOn = true};
  camera.profiles = {{0, 0, 25, 1920, 1080}, {2, 15, 5, 320, 240}};
  ASSERT_EQ(database.AddCamera(camera), 7) << database.LastError();
  const auto loaded = Reader().LoadCamera(7);
  ASSERT_TRUE(loaded);
  EXPECT_EQ(std::tie(loaded->name, loaded->videoType, loaded->source, loaded->ownerNdId, loaded->idOnRec),
            std::tie(camera.name, camera.videoType, camera.source, camera.ownerNdId, camera.idOnRec));
  EXPECT_TRUE(!loaded->enabled && loaded->deleting && loaded->stayOn);
  ASSERT_EQ(loaded->profiles.size(), 2U);
  EXPECT_EQ(loaded->profiles[0].width, 1920);
  EXPECT_EQ(loaded->profiles[1].streamNo, 15);
}

TEST_F(RecordsTest, MeasuredRateFillsInOnlyWhereNoneIsDeclared) {
  Database database = Make();
  const CameraRecord camera{.name = "A", .videoType = 3, .source = "test:", .profiles = {{0, 0, 25}, {1, 1}, {2, 1}}};
  ASSERT_EQ(database.AddCamera(camera), 1);
  ASSERT_EQ(database.AddCamera({.name = "B", .videoType = 3, .source = "test:", .profiles = {{2}}}), 2);
  EXPECT_TRUE(database.SetMeasuredFps(1, 12)) << database.LastError();
  const auto profiles = Reader().LoadCamera(1)->profiles;
  const std::pair<int, int> expected[] = {{25, 25}, {0, 12}, {0, 12}};  // declared, known
  ASSERT_EQ(profiles.size(), std::size(expected));
  for (std::size_t i = 0; i < profiles.size(); ++i) {
    EXPECT_EQ(std::pair(profiles[i].fps, profiles[i].KnownFps()), expected[i]) << i;
  }
  EXPECT_EQ(Reader().LoadCamera(2)->profiles[0].KnownFps(), 0);
}

TEST_F(RecordsTest, ListHoldsEachCameraOnceWithItsProfiles) {
  Database database = Make();
  ASSERT_EQ(database.AddCamera({.name = "A", .videoType = 1, .source = "test:", .profiles = {{0}, {1}, {2}}}), 1);
  ASSERT_EQ(database.AddCamera({.name = "B", .videoType = 3, .source = "test:"}), 2);
  ASSERT_EQ(database.AddCamera({.id = 9, .name = "C", .videoType = 3, .source = "test:", .profiles = {{2}}}), 9);
  std::vector<std::size_t> profiles;
  for (const CameraRecord& camera : database.ListCameras()) profiles.push_back(camera.profiles.size());
  EXPECT_EQ(profiles, (std::vector<std::size_t>{3, 0, 1}));
  EXPECT_TRUE(database.RemoveCamera(1));
  EXPECT_FALSE(database.RemoveCamera(1));
  EXPECT_FALSE(database.SetCameraEnabled(1, true));
  EXPECT_EQ(database.AddCamera({.id = 1, .name = "A", .videoType = 1, .source = "test:"}), 1);
  EXPECT_TRUE(database.LoadCamera(1)->profiles.empty()) << "profiles of a removed camera came back";
}

TEST_F(RecordsTest, WrongCamerasAreRefusedWithAReason) {
  Database database = Make();
  const CameraRecord good{.id = 1, .name = "Door", .videoType = 1, .source = "test:"};
  ASSERT_TRUE(database.AddCamera(good));
  const struct {
    const char* name;
    std::function<void(CameraRecord&)> spoil;
  } cases[] = {
      {"id taken", [](CameraRecord& c) { c.name = "Other"; }},
      {"name taken", [](CameraRecord& c) { c.id = 2; }},
      {"no name", [](CameraRecord& c) { c.id = 2, c.name = ""; }},
      {"line end in the name", [](CameraRecord& c) { c.id = 2, c.name = "a\nb"; }},
      {"huge name", [](CameraRecord& c) { c.id = 2, c.name = std::string(1000, 'a'); }},
      {"id beyond the ring names", [](CameraRecord& c) { c.id = 262144, c.name = "x"; }},
      {"negative id", [](CameraRecord& c) { c.id = -1, c.name = "x"; }},
      {"unknown type", [](CameraRecord& c) { c.id = 2, c.name = "x", c.videoType = 4; }},
      {"unknown profile", [](CameraRecord& c) { c.id = 2, c.name = "x", c.profiles = {{3}}; }},
      {"stream beyond the ring names",
       [](CameraRecord& c) {
         c.id = 2, c.name = "x", c.profiles = {{0, 16}};
       }},
      {"profile given twice",
       [](CameraRecord& c) {
         c.id = 2, c.name = "x", c.profiles = {{0}, {0}};
       }},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    CameraRecord camera = good;
    test.spoil(camera);
    EXPECT_FALSE(database.AddCamera(camera));
    EXPECT_FALSE(database.LastError().empty());
    EXPECT_EQ(database.ListCameras().size(), 1U) << "half a camera stayed";
  }
  EXPECT_FALSE(database.IsUnreadable()) << "a refusal is not a broken file";
}

TEST_F(RecordsTest, UsersAreNumberedAboveTheSystemAndReplacedByName) {
  Database database = Make();
  ASSERT_TRUE(database.AddUser({.name = "anna", .admin = true, .operations = 6}, "hash1")) << database.LastError();
  ASSERT_TRUE(database.AddUser({.name = "ben", .appPrivilege = false}, "hash2"));
  const UserRecord anna = *database.FindUser("anna");
  EXPECT_GT(anna.uid, 1024);
  EXPECT_TRUE(anna.admin && anna.appPrivilege);
  EXPECT_EQ(database.FindUserByUid(anna.uid)->name, "anna");
  EXPECT_FALSE(database.FindUser("Anna"));
  EXPECT_FALSE(database.FindUser("anna' OR '1'='1"));

  ASSERT_TRUE(database.AddSession("s", anna.uid, 100, 200));
  ASSERT_TRUE(database.AddUser({.name = "anna", .operations = 0x80000000U}, "hash3"));
  EXPECT_EQ(database.FindUser("anna")->uid, anna.uid);
  EXPECT_FALSE(database.FindUser("anna")->admin);
  EXPECT_EQ(database.FindUser("anna")->operations, 0x80000000U);
  EXPECT_EQ(database.PasswordHash("anna"), "hash3");
  EXPECT_FALSE(database.PasswordHash("carl"));
  EXPECT_FALSE(database.FindSession("s", 150)) << "a session outlived its password";
  EXPECT_EQ(database.ListUsers().size(), 2U);
  for (const char* name : {"", "two words", "line\nend", "\x7f"}) EXPECT_FALSE(database.AddUser({.name = name}, "h"));
}

TEST_F(RecordsTest, SessionsEndOnTimeAndWithLogout) {
  Database database = Make();
  ASSERT_TRUE(database.AddUser({.name = "anna"}, "hash"));
  const int uid = database.FindUser("anna")->uid;
  EXPECT_FALSE(database.AddSession("stranger", 4711, 100, 200)) << "a session of nobody";
  ASSERT_TRUE(database.AddSession("one", uid, 100, 200));
  ASSERT_TRUE(database.AddSession("two", uid, 100, 300));
  EXPECT_EQ(database.FindSession("one", 199)->user.name, "anna");
  EXPECT_FALSE(database.FindSession("one", 200));
  EXPECT_FALSE(database.FindSession("ONE", 150));
  EXPECT_TRUE(database.RemoveExpiredSessions(200));
  EXPECT_FALSE(database.FindSession("one", 150));
  EXPECT_TRUE(database.RemoveSession("two"));
  EXPECT_FALSE(database.RemoveSession("two"));
}

TEST_F(RecordsTest, GuessingPasswordsIsSlowedDownPerAddress) {
  Database database = Make();
  for (int i = 0; i < Database::kFreeAttempts; ++i) ASSERT_EQ(database.BeginLogin("1.2.3.4", 1000), 0) << i;
  EXPECT_EQ(database.BeginLogin("1.2.3.4", 1000), 60);
  EXPECT_EQ(database.BeginLogin("1.2.3.4", 1059), 1);
  EXPECT_EQ(database.BeginLogin("5.6.7.8", 1059), 0) << "another address pays";
  EXPECT_EQ(database.BeginLogin("1.2.3.4", 1060), 0);
  EXPECT_EQ(database.BeginLogin("1.2.3.4", 1061), 59);
  EXPECT_EQ(database.BeginLogin("1.2.3.4", 500), 60) << "a clock set back locked somebody out";
  EXPECT_TRUE(database.ForgetLoginFailures("1.2.3.4"));
  EXPECT_EQ(database.BeginLogin("1.2.3.4", 1061), 0);
}

TEST_F(RecordsTest, ServersAreListedByIdAndKeptApart) {
  Database database = Make();
  ASSERT_TRUE(database.AddServer({12, "Cellar", "https://10.0.0.2", "secret"}));
  ASSERT_TRUE(database.AddServer({3, "Attic", "https://10.0.0.3", "secret"}));
  EXPECT_FALSE(database.AddServer({3, "Roof", "https://10.0.0.4", "secret"}));
  EXPECT_FALSE(database.AddServer({4, "Attic", "https://10.0.0.4", "secret"}));
  EXPECT_FALSE(database.AddServer({0, "Roof", "https://10.0.0.4", "secret"}));
  EXPECT_FALSE(database.AddServer({4, "Roof", "https://10.0.0.4", ""}));
  const auto servers = database.ListServers();
  ASSERT_EQ(servers.size(), 2U);
  EXPECT_EQ(servers[0].name, "Attic");
}

}  // namespace
