// The log gate against the shared configuration, and what reaches the file.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "capture.h"
#include "log/dbglogcfg.h"
#include "qmlog.h"
#include "records/records.h"

namespace {

constexpr char kLogUnit[] = "testUnit";

class LogGate : public testing::Test {
 protected:
  // Nothing written, and no configuration attached, as a new process would find it.
  void SetUp() override {
    std::filesystem::remove(oculora::kDbgLogCfgPath);
    std::filesystem::remove(oculora::kLogPath);
    if (g_pDbgLogCfg != nullptr) munmap(const_cast<DbgLogCfg*>(g_pDbgLogCfg), sizeof(DbgLogCfg));
    g_pDbgLogCfg = nullptr;
    g_DbgLogPid = 0;
  }

  // The highest level that is written.
  static int Threshold() {
    int level = 0;
    while (level < 8 && LogLevelEnabled(level + 1)) ++level;
    return level;
  }
};

TEST_F(LogGate, FollowsTheSharedConfiguration) {
  WriteFile(oculora::kDbgLogCfgPath, "too short");
  EXPECT_EQ(Threshold(), 3) << "without a configuration that can be read";
  EXPECT_FALSE(oculora::WriteDbgLogCfg(3, std::vector<std::int32_t>(DbgLogCfg::kMaxPids + 1, 2)));
  const auto with = [](int level, const std::vector<std::int32_t>& pids) {
    EXPECT_TRUE(oculora::WriteDbgLogCfg(level, pids));
    return Threshold();
  };
  EXPECT_EQ(with(6, {}), 6);
  EXPECT_EQ(with(1, {}), 1) << "seen without attaching again";
  EXPECT_EQ(with(6, {getpid() + 1, getpid() + 2}), 3) << "limited to other processes";
  EXPECT_EQ(with(5, {getpid() + 1, getpid()}), 5) << "limited to this one among others";
}

TEST_F(LogGate, LinesCarryTheirOriginAndStayOneLine) {
  int evaluated = 0;
  QM_LOG(LOG_LEVEL_INFO, "%d\n", ++evaluated);
  EXPECT_EQ(evaluated, 0) << "arguments of a line that is not written";
  QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: first\n", 7);
  QM_LOG_ALWAYS("AuthByStmKey", "second %s\n", "forged\nline\x1b[31m");
  QM_LOG_ALWAYS("Long", "%s", std::string(10000, 'x').c_str());
  const std::string text = ReadFile(oculora::kLogPath);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3) << text;
  for (const char* part : {"stream/ERROR testUnit:", "Cam[7]: first\n", "AuthByStmKey: second forged line [31m\n"}) {
    EXPECT_NE(text.find(part), std::string::npos) << text;
  }
}

}  // namespace
