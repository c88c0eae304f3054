// A site with users and cameras for tests of the handlers.
#include "fixture.h"

#include <ctime>
#include <filesystem>

#include "admission/pair_match.h"
#include "capture.h"
#include "velm/camera.h"
#include "velm/process.h"

namespace {

constexpr char kSecret[] = "secret of the pair";

oculora::CameraRecord MakeCamera(int id, const std::string& name) {
  oculora::CameraRecord camera;
  camera.id = id;
  camera.name = name;
  camera.videoType = VIDEO_TYPE_MJPEG;
  camera.source = "test:";
  camera.profiles = {{oculora::kMobileProfile, 0, 10, 320, 240}};
  return camera;
}

void AddCameras(oculora::Database& database) {
  database.AddCamera(MakeCamera(7, "Local"));
  auto disabled = MakeCamera(8, "Disabled");
  disabled.enabled = false;
  database.AddCamera(disabled);
  database.AddServer({12, "Barn", "http://127.0.0.1:1", kSecret});
  auto remote = MakeCamera(9, "Remote");
  remote.ownerNdId = 12;
  remote.idOnRec = 3;
  database.AddCamera(remote);
}

std::string Now() { return std::to_string(time(nullptr)); }

}  // namespace

void SiteTest::SetUp() {
  SetRunning(true);
  std::filesystem::remove(oculora::kLogPath);
  if (std::filesystem::exists(oculora::kRecordsPath)) return;  // one site a program: records are opened once
  std::string error;
  auto database = oculora::Database::Open(oculora::Database::Mode::kCreate, &error);
  ASSERT_TRUE(database.has_value()) << error;
  const time_t now = time(nullptr);
  for (const char* name : {"anna", "root", "Oculora", "guest"}) {
    oculora::UserRecord user;
    user.name = name;
    user.admin = user.name == "root";
    user.appPrivilege = user.name == "anna";
    user.operations = user.appPrivilege ? 6 : 0;
    ASSERT_TRUE(database->AddUser(user, "no password")) << database->LastError();
    ASSERT_TRUE(database->AddSession(SessionOf(name), database->FindUser(name)->uid, now, now + 3600));
  }
  AddCameras(*database);
  ASSERT_TRUE(database->SetSetting("pair_secret", kSecret));
}

std::unique_ptr<VELM::APIRequest> SiteTest::Request(const std::string& method, const std::string& params,
                                                    const std::string& cookies) {
  oculora::RawRequest raw;
  raw.query = "api=VELM.Oculora.Stream.VideoStreaming&version=1&method=" + method + params;
  raw.cookies = cookies;
  raw.env.emplace();
  (*raw.env)["REMOTE_ADDR"] = "192.0.2.1";
  return oculora::MakeRequest(std::move(raw));
}

std::string SiteTest::PairParams(const std::string& client) {
  return "&client=" + client + "&cookie=" + oculora::PairCookie(kSecret, Now());
}

std::string SiteTest::PairCookies() { return "timestamp=" + Now(); }

void SiteTest::SetRunning(bool running) {
  if (running) {
    CreatePidFile(oculora::kRecorderPidPath);
  } else {
    std::filesystem::remove(oculora::kRecorderPidPath);
  }
}

void SiteTest::SetSetting(const std::string& name, const std::string& value) {
  std::string error;
  auto database = oculora::Database::Open(oculora::Database::Mode::kReadWrite, &error);
  ASSERT_TRUE(database.has_value()) << error;
  ASSERT_TRUE(database->SetSetting(name, value));
}
