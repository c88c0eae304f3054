// A site with users and cameras for tests of the handlers.
#include "fixture.h"

#include <ctime>
#include <filesystem>

#include "admission/pair_match.h"
#include "velm/camera.h"
#include "velm/process.h"

using oculora::CameraRecord;
using oculora::UserRecord;

namespace {

constexpr char kSecret[] = "secret of the pair";

void AddCameras(oculora::Database& database) {
  database.AddServer({12, "Barn", "http://127.0.0.1:1", kSecret});
  for (CameraRecord camera :
       {CameraRecord{.id = 7}, {.id = 8, .enabled = false}, {.id = 9, .ownerNdId = 12, .idOnRec = 3}}) {
    camera.name = "Camera " + std::to_string(camera.id);
    camera.videoType = VIDEO_TYPE_MJPEG;
    camera.source = "test:";
    camera.profiles = {{oculora::kMobileProfile, 0, 10, 320, 240}};
    database.AddCamera(camera);
  }
}

std::string Now() { return std::to_string(time(nullptr)); }

}  // namespace

void SiteTest::SetUp() {
  CreatePidFile(oculora::kRecorderPidPath);
  std::filesystem::remove(oculora::kLogPath);
  if (std::filesystem::exists(oculora::kRecordsPath)) return;  // one site a program: records are opened once
  auto database = oculora::Database::Open(oculora::Database::Mode::kCreate, nullptr);
  ASSERT_TRUE(database);
  const time_t now = time(nullptr);
  for (const UserRecord& user : {UserRecord{.name = "anna", .operations = 6},
                                 {.name = "root", .admin = true, .appPrivilege = false},
                                 {.name = "Oculora", .appPrivilege = false},
                                 {.name = "guest", .appPrivilege = false}}) {
    ASSERT_TRUE(database->AddUser(user, "no password")) << database->LastError();
    ASSERT_TRUE(database->AddSession(SessionOf(user.name), database->FindUser(user.name)->uid, now, now + 3600));
  }
  AddCameras(*database);
  ASSERT_TRUE(database->SetSetting("pair_secret", kSecret));
}

std::unique_ptr<VELM::APIRequest> SiteTest::Request(const std::string& method, const std::string& params,
                                                    const std::string& cookies) {
  const std::string query = "api=VELM.Oculora.Stream.VideoStreaming&version=1&method=" + method + params;
  return oculora::MakeRequest({query, "", cookies, {{{"REMOTE_ADDR", "192.0.2.1"}}}});
}

std::string SiteTest::PairParams(const std::string& client) {
  return "&client=" + client + "&cookie=" + oculora::PairCookie(kSecret, Now());
}

std::string SiteTest::PairCookies() { return "timestamp=" + Now(); }
