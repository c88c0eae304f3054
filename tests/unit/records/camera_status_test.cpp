// The rule that says whether a camera may be streamed, over real records and real rings.
#include <gtest/gtest.h>

#include <filesystem>

#include "records/records.h"
#include "shm/ring_writer.h"
#include "velm/camera.h"

using oculora::CameraRecord;
using oculora::Database;

namespace {

constexpr int kAdmin = 1, kViewer = 2, kNobody = 3;  // replaced by their real uids

enum CameraKind { kWithRing = 1, kWithoutRing, kDisabled, kDeleting, kRemote, kRemoteDisabled };

class CameraStatusTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::filesystem::create_directories(oculora::kVarDir);
    std::string error;
    auto database = Database::Open(Database::Mode::kCreate, &error);
    ASSERT_TRUE(database) << error;
    const auto add = [&](CameraRecord camera) {
      camera.name = "Camera " + std::to_string(camera.id);
      camera.videoType = VIDEO_TYPE_MJPEG;
      camera.profiles = {{0, 0, 25, 1920, 1080}, {2, 2, 5, 320, 240}};
      ASSERT_TRUE(database->AddCamera(camera)) << database->LastError();
    };
    add({.id = kWithRing});
    add({.id = kWithoutRing});
    add({.id = kDisabled, .enabled = false});
    add({.id = kDeleting, .enabled = false, .deleting = true});
    add({.id = kRemote, .ownerNdId = 3});
    add({.id = kRemoteDisabled, .ownerNdId = 3, .enabled = false});
    ASSERT_TRUE(database->AddUser({.name = "admin", .admin = true}, "x"));
    ASSERT_TRUE(database->AddUser({.name = "viewer", .operations = 1U << CAM_PRIV_LIVE}, "x"));
    s_Ring = oculora::RingWriter::Create({kWithRing, 2, oculora::RingKind::kVideo}, 1 << 20, true);
    ASSERT_TRUE(s_Ring.IsValid());
  }
  static void TearDownTestSuite() { oculora::RemoveRing({kWithRing, 2, oculora::RingKind::kVideo}); }

  static int Uid(int who) {
    Database* database = oculora::RequestDatabase();
    if (who == kAdmin) return database->FindUser("admin")->uid;
    if (who == kViewer) return database->FindUser("viewer")->uid;
    return who == kNobody ? 0 : who;
  }

  static DEV_STATUS Status(int camId, CamStatusRule rule) {
    Camera camera;
    EXPECT_EQ(camera.Load(camId, 0, 0), 0);
    rule.uid = Uid(rule.uid);
    return GetCamStatusByRule(camera, rule);
  }

  static oculora::RingWriter s_Ring;
};
oculora::RingWriter CameraStatusTest::s_Ring;

TEST_F(CameraStatusTest, FirstReasonAgainstACameraCounts) {
  const struct {
    const char* name;
    int camera;
    CamStatusRule rule;
    DEV_STATUS status;
  } cases[] = {
      {"on demand and ready", kWithRing, {true, true, true, true, false, 1, kViewer}, DEV_STATUS_USABLE},
      {"administrators may", kWithRing, {true, true, true, true, false, 2, kAdmin}, DEV_STATUS_USABLE},
      {"the system may", kWithRing, {true, true, true, true, false, 2, kSystemUid}, DEV_STATUS_USABLE},
      {"live is not playback", kWithRing, {true, true, true, true, false, 2, kViewer}, DEV_STATUS_NO_PRIVILEGE},
      {"nobody may", kWithRing, {true, true, true, true, false, 1, kNobody}, DEV_STATUS_NO_PRIVILEGE},
      {"unknown user", kWithRing, {true, false, false, false, false, 1, 99999}, DEV_STATUS_NO_PRIVILEGE},
      {"with a key nobody is asked", kWithRing, {false, true, true, true, false, 1, kNobody}, DEV_STATUS_USABLE},
      {"privilege out of range", kWithRing, {true, false, false, false, false, 40, kViewer}, DEV_STATUS_NO_PRIVILEGE},
      {"no ring yet", kWithoutRing, {true, true, true, true, false, 1, kViewer}, DEV_STATUS_UNINITIALISED},
      {"no ring, connection only", kWithoutRing, {true, true, true, false, false, 1, kViewer}, DEV_STATUS_DISCONNECTED},
      {"no ring, nobody asks", kWithoutRing, {true, true, false, false, false, 1, kViewer}, DEV_STATUS_USABLE},
      {"disabled before no ring", kDisabled, {true, true, true, true, false, 1, kViewer}, DEV_STATUS_DISABLED},
      {"privilege before disabled", kDisabled, {true, true, true, true, false, 1, kNobody}, DEV_STATUS_NO_PRIVILEGE},
      {"disabled does not matter", kDisabled, {true, false, false, false, false, 1, kViewer}, DEV_STATUS_USABLE},
      {"deleted before disabled", kDeleting, {true, true, true, true, false, 1, kViewer}, DEV_STATUS_DELETED},
      {"deleting is accepted", kDeleting, {true, false, false, false, true, 1, kViewer}, DEV_STATUS_USABLE},
      {"its server knows the rest", kRemote, {true, true, true, true, false, 1, kViewer}, DEV_STATUS_USABLE},
      {"remote and disabled", kRemoteDisabled, {true, true, true, true, false, 1, kViewer}, DEV_STATUS_DISABLED},
      {"remote and forbidden", kRemote, {true, true, true, true, false, 2, kViewer}, DEV_STATUS_NO_PRIVILEGE},
  };
  for (const auto& test : cases) EXPECT_EQ(Status(test.camera, test.rule), test.status) << test.name;
}

TEST_F(CameraStatusTest, EveryReasonHasItsCode) {
  const std::pair<int, int> codes[] = {{2, 405}, {3, 402}, {4, 403}, {5, 404}, {6, 105}, {1, 100}, {77, 100}};
  for (const auto& [status, code] : codes) EXPECT_EQ(CamStatusToWebApiErr(static_cast<DEV_STATUS>(status)), code);
}

TEST_F(CameraStatusTest, LoadingLeavesTheObjectAloneWhenItFails) {
  Camera camera;
  for (const int id : {0, -1, 4711}) EXPECT_EQ(camera.Load(id, 0, 0), -1);
  ASSERT_EQ(camera.Load(kRemote, 0, 0), 0);
  EXPECT_EQ(camera.Load(4711, 0, 0), -1);
  EXPECT_EQ(camera.GetId(), kRemote);
  EXPECT_EQ(camera.GetUiStreamNo(camera.GetMobileProfile()), 2);
  EXPECT_EQ(camera.GetStreamSetting(0).fps, 25);
  EXPECT_EQ(camera.GetStreamSetting(1).fps, 0);
  for (const int profile : {-1, 3, 1000}) EXPECT_EQ(camera.GetUiStreamNo(profile), 0);
}

}  // namespace
