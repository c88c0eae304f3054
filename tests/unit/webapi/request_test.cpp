// Who asks: session ids, sessions, and what the environment says.
#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>

#include "records/records.h"
#include "webapi/request_state.h"

using oculora::Database;
using oculora::MakeRequest;

namespace {

constexpr char kLive[] = "live-session_0123456789";
constexpr char kLiveToo[] = "bert-session_0123456789";
constexpr char kOver[] = "over-session_0123456789";

class RequestTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::filesystem::create_directories(oculora::kVarDir);
    auto database = Database::Open(Database::Mode::kCreate, nullptr);
    ASSERT_TRUE(database);
    ASSERT_TRUE(database->AddUser({.name = "anna", .admin = true, .appPrivilege = false}, "x"));
    const int uid = database->FindUser("anna")->uid;
    const std::int64_t now = std::time(nullptr);
    ASSERT_TRUE(database->AddSession(kLive, uid, now, now + 600));
    ASSERT_TRUE(database->AddSession(kOver, uid, now - 600, now - 1));
    ASSERT_TRUE(database->AddUser({.name = "bert"}, "x"));
    ASSERT_TRUE(database->AddSession(kLiveToo, database->FindUser("bert")->uid, now, now + 600));
  }
};

TEST_F(RequestTest, OnlyWellFormedSessionIdsAreIds) {
  const std::string id16 = "0123456789abcdef", id64 = id16 + id16 + id16 + id16;
  const struct {
    const char* name;
    std::string query, cookies, expected;
  } cases[] = {
      {"parameter", "_sid=" + id16, "", id16},
      {"cookie", "", "oculora_sid=" + id16, id16},
      {"parameter before cookie", "_sid=" + id16, "oculora_sid=" + id64, id16},
      {"empty parameter", "_sid=", "oculora_sid=" + id16, id16},
      {"broken parameter does not fall back", "_sid=../../etc/passwd", "oculora_sid=" + id16, ""},
      {"longest", "_sid=" + id64, "", id64},
      {"too short", "_sid=" + id16.substr(1), "", ""},
      {"too long", "_sid=" + id64 + "x", "", ""},
      {"all characters", "_sid=AZaz09_-AZaz09_-", "", "AZaz09_-AZaz09_-"},
      {"quoted", "_sid=\"" + id16 + "\"", "", id16},
      {"a slash", "_sid=01234567/9abcdef", "", ""},
      {"a dot", "_sid=01234567.9abcdef", "", ""},
      {"a percent code", "_sid=01234567%2f9abcdef", "", ""},
      {"a NUL", "_sid=" + id16 + "%00", "", ""},
      {"a line end", "_sid=" + id16 + "%0a", "", ""},
      {"none", "", "", ""},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(MakeRequest({test.query, "", test.cookies, {}})->GetSessionID(), test.expected) << test.name;
  }
}

TEST_F(RequestTest, SessionSaysWhoAsks) {
  const auto live = MakeRequest({"", "", std::string("oculora_sid=") + kLive, {}});
  EXPECT_TRUE(live->IsAuthorized());
  EXPECT_TRUE(live->IsAdmin());
  EXPECT_EQ(live->GetLoginUserName(), "anna");
  EXPECT_GT(live->GetLoginUID(), 1024U);
  EXPECT_FALSE(live->HasAppPriv(oculora::kAppPrivilege));

  for (const char* id : {kOver, "", "unknown_0123456789abcdef"}) {
    const auto other = MakeRequest({std::string("_sid=") + id, "", "", {}});
    EXPECT_FALSE(other->IsAuthorized() || other->IsAdmin() || other->HasAppPriv(oculora::kAppPrivilege)) << id;
    EXPECT_EQ(other->GetLoginUserName(), "");
    EXPECT_EQ(other->GetLoginUID(), 0U);
  }
}

// Playlist entries carry the session of whoever opened the stream; another viewer's browser adds its own cookie.
TEST_F(RequestTest, CookieCountsWhenTheSessionNamedIsOver) {
  const struct {
    const char* name;
    std::string named, cookie, user, id;
  } cases[] = {
      {"both live", kLive, kLiveToo, "anna", kLive},
      {"the one named is over", kOver, kLiveToo, "bert", kLiveToo},
      {"the cookie's is over", kLive, kOver, "anna", kLive},
      {"neither lives", "unknown_0123456789abcdef", kOver, "", "unknown_0123456789abcdef"},
      {"the same twice", kOver, kOver, "", kOver},
      {"a cookie that is no id", kOver, "../../etc", "", kOver},
  };
  for (const auto& test : cases) {
    const auto request = MakeRequest({"_sid=" + test.named, "", "oculora_sid=" + test.cookie, {}});
    EXPECT_EQ(request->GetSessionID(), test.id) << test.name;
    EXPECT_EQ(request->GetLoginUserName(), test.user) << test.name;
    EXPECT_EQ(request->IsAuthorized(), !test.user.empty()) << test.name;
  }
}

TEST_F(RequestTest, NamesOfTheCallAndTheEnvironment) {
  const auto request = MakeRequest({"api=A.B&method=M&version=3", "", "", {{{"REMOTE_ADDR", "10.1.2.3"}}}});
  EXPECT_EQ(request->GetAPIClass(), "A.B");
  EXPECT_EQ(request->GetAPIMethod(), "M");
  EXPECT_EQ(request->GetAPIVersion(), 3);
  EXPECT_EQ(request->GetRemoteIP(), "10.1.2.3");
  EXPECT_EQ(request->GetEnv("HTTP_RANGE", "none"), "none");
  EXPECT_EQ(MakeRequest({})->GetAPIVersion(), 1);
}

}  // namespace
