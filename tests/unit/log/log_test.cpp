// The log gate against the shared configuration, and what reaches the file.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "capture.h"
#include "log/dbglogcfg.h"
#include "qmlog.h"
#include "records/records.h"

namespace {

constexpr char kLogUnit[] = "testUnit";

// Forgets the attached configuration, as a new process would find it.
void Detach() {
  if (g_pDbgLogCfg != nullptr) munmap(const_cast<DbgLogCfg*>(g_pDbgLogCfg), sizeof(DbgLogCfg));
  g_pDbgLogCfg = nullptr;
  g_DbgLogPid = 0;
}

class LogGate : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::remove(oculora::kDbgLogCfgPath);
    std::filesystem::remove(oculora::kLogPath);
    Detach();
  }
  void TearDown() override { Detach(); }

  // The highest level that is written.
  static int Threshold() {
    int level = 0;
    while (level < 8 && LogLevelEnabled(level + 1)) ++level;
    return level;
  }
};

TEST_F(LogGate, FollowsTheSharedConfiguration) {
  EXPECT_EQ(Threshold(), 3) << "without a configuration";
  ASSERT_TRUE(oculora::WriteDbgLogCfg(6, {}));
  EXPECT_EQ(Threshold(), 6) << "for every process";
  ASSERT_TRUE(oculora::WriteDbgLogCfg(1, {}));
  EXPECT_EQ(Threshold(), 1) << "seen without attaching again";
  ASSERT_TRUE(oculora::WriteDbgLogCfg(6, {getpid() + 1, getpid() + 2}));
  EXPECT_EQ(Threshold(), 3) << "limited to other processes";
  ASSERT_TRUE(oculora::WriteDbgLogCfg(5, {getpid() + 1, getpid()}));
  EXPECT_EQ(Threshold(), 5) << "limited to this one among others";
  EXPECT_EQ(g_DbgLogPid, getpid());
}

TEST_F(LogGate, RefusesWhatTheRecordCannotHold) {
  EXPECT_FALSE(oculora::WriteDbgLogCfg(8, {}));
  EXPECT_FALSE(oculora::WriteDbgLogCfg(3, std::vector<std::int32_t>(DbgLogCfg::kMaxPids + 1, 2)));
  WriteFile(oculora::kDbgLogCfgPath, "too short");
  EXPECT_EQ(Threshold(), 3);
}

// A system log of the test's own: a socket where the C library looks for one, in a /dev that only this process sees.
TEST_F(LogGate, LinesGoToTheSystemLogWhenAsked) {
  ASSERT_EQ(mount("tmpfs", "/dev", "tmpfs", 0, nullptr), 0);
  const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0);
  const sockaddr_un address{AF_UNIX, "/dev/log"};
  ASSERT_EQ(bind(log, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  const auto received = [&] {
    char text[512] = "";
    return recv(log, text, sizeof(text) - 1, 0) > 0 ? std::string(text) : std::string();
  };
  QM_LOG_ALWAYS("func", "not asked\n");
  EXPECT_EQ(received(), "");
  ASSERT_TRUE(oculora::WriteSystemLog(true));
  QM_LOG(LOG_LEVEL_ERROR, "asked %d\n", 7);
  EXPECT_NE(received().find("asked 7"), std::string::npos);
  ASSERT_TRUE(oculora::WriteDbgLogCfg(5, {}));
  EXPECT_EQ(Threshold(), 5);
  ASSERT_TRUE(oculora::WriteSystemLog(false));
  QM_LOG_ALWAYS("func", "no more\n");
  EXPECT_EQ(received(), "");
  close(log);
  umount2("/dev", MNT_DETACH);
}

TEST_F(LogGate, ArgumentsOfADisabledLineAreNotEvaluated) {
  int evaluated = 0;
  QM_LOG(LOG_LEVEL_INFO, "%d\n", ++evaluated);
  EXPECT_EQ(evaluated, 0);
  QM_LOG(LOG_LEVEL_ERROR, "%d\n", ++evaluated);
  EXPECT_EQ(evaluated, 1);
}

TEST_F(LogGate, LinesCarryTheirOriginAndStayOneLine) {
  QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: first\n", 7);
  QM_LOG_ALWAYS("AuthByStmKey", "second %s\n", "forged\nline\x1b[31m");
  QM_LOG_ALWAYS("Long", "%s", std::string(10000, 'x').c_str());
  const std::string text = ReadFile(oculora::kLogPath);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3) << text;
  EXPECT_NE(text.find("stream/ERROR testUnit:"), std::string::npos) << text;
  EXPECT_NE(text.find("Cam[7]: first\n"), std::string::npos) << text;
  EXPECT_NE(text.find("AuthByStmKey: second forged line [31m\n"), std::string::npos) << text;
  EXPECT_STREQ(Enum2String(static_cast<LOG_LEVEL>(99)), "unknown");
}

}  // namespace
