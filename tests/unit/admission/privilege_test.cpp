// Who may do what, and whether the application runs.
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <filesystem>

#include "capture.h"
#include "records/records.h"
#include "velm/admission.h"
#include "velm/camera.h"

using oculora::Database;

namespace {

TEST(PrivilegeTest, ProfilesFollowTheRecords) {
  std::filesystem::create_directories(oculora::kVarDir);
  auto database = Database::Open(Database::Mode::kCreate, nullptr);
  ASSERT_TRUE(database);
  ASSERT_TRUE(database->AddUser({.name = "admin", .admin = true}, "x"));
  ASSERT_TRUE(database->AddUser({.name = "live", .operations = 1U << PRIV_OPER_LIVE}, "x"));
  ASSERT_TRUE(database->AddUser({.name = "none", .appPrivilege = false}, "x"));
  const auto rights = [&](unsigned uid) {
    const PrivProfile profile = PrivProfileGetByUid(uid);
    return std::pair(profile.IsOperAllow(PRIV_OPER_LIVE), profile.IsOperAllow(PRIV_OPER_PLAYBACK));
  };
  const auto uid = [&](const char* name) { return static_cast<unsigned>(database->FindUser(name)->uid); };
  EXPECT_EQ(rights(uid("admin")), std::pair(true, true));
  EXPECT_EQ(rights(uid("live")), std::pair(true, false));
  EXPECT_EQ(rights(uid("none")), std::pair(false, false));
  EXPECT_EQ(rights(kSystemUid), std::pair(true, true));
  for (const unsigned stranger : {0U, 1U, 999999U, 0xffffffffU}) EXPECT_EQ(rights(stranger), std::pair(false, false));

  EXPECT_NE(SDKUser::AppPrivUserHas("live", oculora::kAppPrivilege, "10.0.0.1"), 0);
  EXPECT_EQ(SDKUser::AppPrivUserHas("none", oculora::kAppPrivilege, "10.0.0.1"), 0);
  EXPECT_EQ(SDKUser::AppPrivUserHas("stranger", oculora::kAppPrivilege, ""), 0);
  EXPECT_EQ(SDKUser::AppPrivUserHas("admin", "VELM.Other", ""), 0);
}

TEST(PrivilegeTest, OperationsOutOfRangeAreNotAllowed) {
  const PrivProfile everything(0xffffffff);
  EXPECT_TRUE(everything.IsOperAllow(static_cast<PRIV_OPER>(31)));
  for (const int operation : {-1, 32, 1000}) EXPECT_FALSE(everything.IsOperAllow(static_cast<PRIV_OPER>(operation)));
}

TEST(PrivilegeTest, ApplicationRunsWhileTheRecorderDoes) {
  std::filesystem::create_directories(oculora::kVarDir);
  EXPECT_FALSE(IsQmRunning());
  Child recorder([] { pause(); });
  WriteFile(oculora::kRecorderPidPath, std::to_string(recorder.pid()) + "\n");
  EXPECT_TRUE(IsQmRunning());
  kill(recorder.pid(), SIGKILL);
  ASSERT_NE(recorder.Wait(5000), -1);
  EXPECT_FALSE(IsQmRunning());
}

}  // namespace
