// "isRedirectCgi" raises the user to the system: who may say it.
#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>

#include "admission/pair_match.h"
#include "capture.h"
#include "records/records.h"
#include "webapi/request_state.h"

using oculora::Database;
using oculora::MakeRequest;

namespace {

bool Redirected(const std::string& query, const std::string& cookies = "") {
  return MakeRequest({query + "&isRedirectCgi=1", "", cookies, {}})->GetParam("isRedirectCgi", false).asBool();
}

TEST(RedirectTest, OnlyAPairedPeerOrAStreamKeyIsBelieved) {
  std::filesystem::create_directories(oculora::kVarDir);
  std::filesystem::create_directories(oculora::kStreamKeyDir);
  WriteFile(std::string(oculora::kStreamKeyDir) + "/rtsp_key", "1=first/second\n2=single\n3=/\n");
  auto database = Database::Open(Database::Mode::kCreate, nullptr);
  ASSERT_TRUE(database && database->SetSetting("pair_secret", "shared"));
  const std::string now = std::to_string(std::time(nullptr));
  const std::string proof = "&cookie=" + oculora::PairCookie("shared", now);
  const std::string time = "timestamp=" + now;

  EXPECT_TRUE(Redirected("cameraId=1&StmKey=first"));
  EXPECT_TRUE(Redirected("cameraId=1&StmKey=%22second%22")) << "hosts send the key in quotes";
  EXPECT_TRUE(Redirected("client=NVR" + proof, time));
  EXPECT_TRUE(Redirected("client=REC_SERVER" + proof, time));
  EXPECT_TRUE(Redirected("client=REC_SERVER&isCrossSite=1" + proof, time));

  EXPECT_FALSE(Redirected("cameraId=1"));
  EXPECT_FALSE(Redirected("cameraId=1&StmKey=wrong"));
  EXPECT_FALSE(Redirected("cameraId=1&StmKey="));
  EXPECT_FALSE(Redirected("cameraId=2&StmKey=")) << "the second key that is not there";
  EXPECT_FALSE(Redirected("cameraId=3&StmKey="));
  EXPECT_FALSE(Redirected("cameraId=2&StmKey=first")) << "another camera's key";
  EXPECT_FALSE(Redirected("cameraId=9&StmKey=first"));
  EXPECT_FALSE(Redirected("StmKey=first"));
  EXPECT_FALSE(Redirected("client=nvr" + proof, time));
  EXPECT_FALSE(Redirected(proof, time));
  EXPECT_FALSE(Redirected("client=NVR" + proof)) << "no time stamp";
  EXPECT_FALSE(Redirected("client=NVR&cookie=00", time));
}

TEST(RedirectTest, FalseHasTheTypeAskedFor) {
  const auto request = MakeRequest({"isRedirectCgi=1", "", "", {}});
  EXPECT_FALSE(request->GetParam("isRedirectCgi", true).asBool());
  EXPECT_EQ(request->GetParam("isRedirectCgi", 7).asInt(), 0);
  EXPECT_EQ(request->GetParam("isRedirectCgi", "x").asString(), "false");
  EXPECT_TRUE(MakeRequest({})->GetParam("isRedirectCgi", true).asBool()) << "absent is the default";
}

}  // namespace
