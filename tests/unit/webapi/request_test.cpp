// Who asks: session ids, sessions, and who may say that a request is forwarded.
#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>

#include "admission/pair_match.h"
#include "capture.h"
#include "records/records.h"
#include "webapi/request_state.h"

using oculora::Database;
using oculora::MakeRequest;
using namespace std::string_literals;

namespace {

const std::string kLive = "live-session_0123456789";
const std::string kLiveToo = "bert-session_0123456789";
const std::string kOver = "over-session_0123456789";

class RequestTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::filesystem::create_directories(oculora::kVarDir);
    auto database = Database::Open(Database::Mode::kCreate, nullptr);
    ASSERT_TRUE(database && database->SetSetting("pair_secret", "shared"));
    ASSERT_TRUE(database->AddUser({.name = "anna", .admin = true, .appPrivilege = false}, "x"));
    ASSERT_TRUE(database->AddUser({.name = "bert"}, "x"));
    const int uid = database->FindUser("anna")->uid;
    const std::int64_t now = std::time(nullptr);
    ASSERT_TRUE(database->AddSession(kLive, uid, now, now + 600));
    ASSERT_TRUE(database->AddSession(kOver, uid, now - 600, now - 1));
    ASSERT_TRUE(database->AddSession(kLiveToo, database->FindUser("bert")->uid, now, now + 600));
  }
};

// Playlist entries carry the session of whoever opened the stream; another viewer's browser adds its own cookie, which
// counts when the session named is over.
TEST_F(RequestTest, SessionIsTheOneNamedElseTheCookies) {
  const std::string id16 = "0123456789abcdef", id64 = id16 + id16 + id16 + id16;
  const std::string cases[][4] = {{"", kLive, "anna", kLive},
                                  {kLive, kLiveToo, "anna", kLive},
                                  {kOver, kLiveToo, "bert", kLiveToo},
                                  {kLive, kOver, "anna", kLive},
                                  {id16, kOver, "", id16},
                                  {kOver, "../../etc", "", kOver},
                                  {"../../etc/passwd", kLive, "", ""},
                                  {"", id64, "", id64},
                                  {id64, "", "", id64},
                                  {"\"" + id16 + "\"", "", "", id16}};
  for (const auto& [named, cookie, user, id] : cases) {
    SCOPED_TRACE(named + " " + cookie);
    const auto request = MakeRequest({"_sid=" + named, "", "oculora_sid=" + cookie, {}});
    EXPECT_EQ(request->GetSessionID(), id);
    EXPECT_EQ(request->GetLoginUserName(), user);
    EXPECT_EQ(request->IsAuthorized(), !user.empty());
    EXPECT_EQ(request->IsAdmin(), user == "anna");
    EXPECT_EQ(request->HasAppPriv(oculora::kAppPrivilege), user == "bert");
    EXPECT_EQ(request->GetLoginUID() > 1024, !user.empty());
  }
  for (const auto& bad : {""s, id16.substr(1), id64 + "x", id16 + "/a", id16 + ".", id16 + "%00", id16 + "%0a"}) {
    EXPECT_EQ(MakeRequest({"_sid=" + bad, "", "", {}})->GetSessionID(), "") << bad;
    EXPECT_EQ(MakeRequest({"", "", "oculora_sid=" + bad, {}})->GetSessionID(), "") << bad;
  }
}

// "isRedirectCgi" raises the user to the system.
TEST_F(RequestTest, OnlyAPairedPeerOrAStreamKeyMaySayThatItForwards) {
  std::filesystem::create_directories(oculora::kStreamKeyDir);
  WriteFile(std::string(oculora::kStreamKeyDir) + "/rtsp_key", "1=first/second\n2=single\n3=/\n");
  const std::string now = std::to_string(std::time(nullptr));
  const std::string proof = "&cookie=" + oculora::PairCookie("shared", now);
  const auto redirected = [&](const std::string& query, const std::string& cookies) {
    return MakeRequest({query + "&isRedirectCgi=1", "", cookies, {}})->GetParam("isRedirectCgi", false).asBool();
  };
  for (const std::string& good : {"cameraId=1&StmKey=first"s, "cameraId=1&StmKey=%22second%22"s, "client=NVR" + proof,
                                  "client=REC_SERVER&isCrossSite=1" + proof}) {
    EXPECT_TRUE(redirected(good, "timestamp=" + now)) << good;
  }
  EXPECT_FALSE(redirected("client=NVR" + proof, "")) << "no time stamp";
  // Wrong keys, keys that are not there, another camera's, no camera; no paired client, or none with a proof.
  for (const std::string& bad :
       {"cameraId=1"s, "cameraId=1&StmKey=wrong"s, "cameraId=1&StmKey="s, "cameraId=2&StmKey="s, "cameraId=3&StmKey="s,
        "cameraId=2&StmKey=first"s, "cameraId=9&StmKey=first"s, "StmKey=first"s, "client=nvr" + proof, proof,
        "client=NVR&cookie=00"s}) {
    EXPECT_FALSE(redirected(bad, "timestamp=" + now)) << bad;
  }
  const auto request = MakeRequest({"isRedirectCgi=1", "", "", {}});
  EXPECT_EQ(request->GetParam("isRedirectCgi", 7), 0) << "false has the type asked for";
  EXPECT_EQ(request->GetParam("isRedirectCgi", "x"), "false");
  EXPECT_TRUE(MakeRequest({})->GetParam("isRedirectCgi", true).asBool()) << "absent is the default";
}

}  // namespace
