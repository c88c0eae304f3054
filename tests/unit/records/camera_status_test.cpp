// The rule that says whether a camera may be streamed, over real records and real rings.
#include <gtest/gtest.h>

#include <filesystem>

#include "records/records.h"
#include "shm/ring_writer.h"
#include "velm/camera.h"

using oculora::CameraRecord;
using oculora::Database;

namespace {

constexpr int kAdmin = 1025, kViewer = 1026, kNobody = 0, kUsable = 0;

enum CameraKind { kWithRing = 1, kWithoutRing, kDisabled, kDeleting, kRemote, kRemoteDisabled };

TEST(CameraStatusTest, FirstReasonAgainstACameraCounts) {
  std::filesystem::create_directories(oculora::kVarDir);
  auto database = Database::Open(Database::Mode::kCreate, nullptr);
  ASSERT_TRUE(database);
  for (CameraRecord camera : {CameraRecord{.id = kWithRing},
                              {.id = kWithoutRing},
                              {.id = kDisabled, .enabled = false},
                              {.id = kDeleting, .enabled = false, .deleting = true},
                              {.id = kRemote, .ownerNdId = 3},
                              {.id = kRemoteDisabled, .ownerNdId = 3, .enabled = false}}) {
    camera.name = "Camera " + std::to_string(camera.id);
    camera.videoType = VIDEO_TYPE_MJPEG;
    camera.profiles = {{0, 0, 25, 1920, 1080}, {2, 2, 5, 320, 240}};
    ASSERT_TRUE(database->AddCamera(camera)) << database->LastError();
  }
  ASSERT_TRUE(database->AddUser({.name = "admin", .admin = true}, "x"));
  ASSERT_TRUE(database->AddUser({.name = "viewer", .operations = 1U << CAM_PRIV_LIVE}, "x"));
  ASSERT_EQ(database->FindUser("viewer")->uid, kViewer);
  ASSERT_TRUE(oculora::RingWriter::Create({kWithRing, 2}, 1 << 20, true).IsValid());

  const struct {
    const char* name;
    int camera;
    CamStatusRule rule;
    int error;
  } cases[] = {
      {"on demand and ready", kWithRing, {true, true, true, true, false, 1, kViewer}, kUsable},
      {"administrators may", kWithRing, {true, true, true, true, false, 2, kAdmin}, kUsable},
      {"the system may", kWithRing, {true, true, true, true, false, 2, kSystemUid}, kUsable},
      {"live is not playback", kWithRing, {true, true, true, true, false, 2, kViewer}, 105},
      {"nobody may", kWithRing, {true, true, true, true, false, 1, kNobody}, 105},
      {"unknown user", kWithRing, {true, false, false, false, false, 1, 99999}, 105},
      {"with a key nobody is asked", kWithRing, {false, true, true, true, false, 1, kNobody}, kUsable},
      {"privilege out of range", kWithRing, {true, false, false, false, false, 33, kViewer}, 105},
      {"no ring yet", kWithoutRing, {true, true, true, true, false, 1, kViewer}, 404},
      {"no ring, connection only", kWithoutRing, {true, true, true, false, false, 1, kViewer}, 403},
      {"disabled before no ring", kDisabled, {true, true, true, true, false, 1, kViewer}, 402},
      {"privilege before disabled", kDisabled, {true, true, true, true, false, 1, kNobody}, 105},
      {"deleted before disabled", kDeleting, {true, true, true, true, false, 1, kViewer}, 405},
      {"deleting is accepted", kDeleting, {true, false, false, false, true, 1, kViewer}, kUsable},
      {"its server knows the rest", kRemote, {true, true, true, true, false, 1, kViewer}, kUsable},
      {"remote and disabled", kRemoteDisabled, {true, true, true, true, false, 1, kViewer}, 402},
  };
  for (const auto& test : cases) {
    Camera camera;
    EXPECT_EQ(camera.Load(test.camera, 0, 0), 0);
    const DEV_STATUS status = GetCamStatusByRule(camera, test.rule);
    EXPECT_EQ(status == DEV_STATUS_USABLE ? kUsable : CamStatusToWebApiErr(status), test.error) << test.name;
  }

  Camera camera;
  ASSERT_EQ(camera.Load(kRemote, 0, 0), 0);
  EXPECT_EQ(camera.Load(4711, 0, 0), -1);
  EXPECT_EQ(camera.GetId(), kRemote) << "a load that fails leaves it alone";
  EXPECT_EQ(camera.GetUiStreamNo(camera.GetMobileProfile()), 2);
  for (const int profile : {-1, 3, 1000}) EXPECT_EQ(camera.GetUiStreamNo(profile), 0);
  oculora::RemoveRing({kWithRing, 2});
}

}  // namespace
