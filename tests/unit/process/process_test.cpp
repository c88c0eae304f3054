// File helpers and pid files: trees, locks, processes that are no longer who they were.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "capture.h"
#include "velm/file.h"
#include "velm/process.h"

namespace fs = std::filesystem;

namespace {

TEST(Tree, IsRemovedButNotWhereItsLinksLead) {
  fs::create_directories("/tmp/outside/keep");
  fs::create_directories("/tmp/tree/inner");
  fs::create_directory_symlink("/tmp/outside", "/tmp/tree/inner/link");
  WriteFile("/tmp/tree/inner/file", "x");
  EXPECT_EQ(QmRm("/tmp/tree"), 0);
  EXPECT_FALSE(fs::exists("/tmp/tree"));
  EXPECT_TRUE(fs::exists("/tmp/outside/keep"));
  for (const char* none : {"/tmp/tree", ""}) EXPECT_EQ(QmRm(none), -1);
}

TEST(Lock, IsExclusiveBetweenObjectsAndReleasedWithThem) {
  QmFlock first("/tmp/lock");
  EXPECT_FALSE(fs::exists("/tmp/lock")) << "made before it is taken";
  ASSERT_EQ(first.LockEx(-1), 0);
  {
    QmFlock second("/tmp/lock");
    EXPECT_EQ(second.LockEx(30), -1);
    first.UnLock();
    EXPECT_EQ(second.LockEx(0), 0);
  }
  EXPECT_EQ(first.LockEx(0), 0);
  EXPECT_EQ(QmFlock("/tmp/no/such/dir/l").LockEx(-1), -1);
}

constexpr char kPidFile[] = "/tmp/pid-file";

TEST(PidFile, NamesOnlyALiveProcessOfItsTime) {
  EXPECT_FALSE(ProcAliveByPidFile(kPidFile));
  ASSERT_EQ(CreatePidFile(kPidFile), 0);
  EXPECT_EQ(ReadFile(kPidFile), std::to_string(getpid()) + "\n");
  EXPECT_TRUE(ProcAliveByPidFile(kPidFile));
  fs::last_write_time(kPidFile, fs::last_write_time(kPidFile) - std::chrono::hours(1));
  EXPECT_FALSE(ProcAliveByPidFile(kPidFile)) << "the pid was handed out again after the file was written";
  for (const char* text : {"", "0\n", "1\n", "-1\n", "abc\n", "99999999999\n"}) {
    WriteFile(kPidFile, text);
    EXPECT_FALSE(ProcAliveByPidFile(kPidFile)) << text;
    EXPECT_EQ(ProcSignalByPidFile(kPidFile, 0), -1) << text;
  }
}

TEST(PidFile, SignalsReachTheProcessButNeverTheCaller) {
  Child child([] { pause(); });
  WriteFile(kPidFile, std::to_string(child.pid()));
  ClearOldProcess(kPidFile, SIGKILL);
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(child.pid()), &info, WEXITED | WNOWAIT);
  EXPECT_EQ(info.si_status, SIGKILL);
  EXPECT_FALSE(ProcAliveByPidFile(kPidFile)) << "a zombie is not alive";
  ASSERT_EQ(ProcPidFileCreate(kPidFile), 0);
  ClearOldProcess(kPidFile, SIGKILL);  // this process lives on
}

}  // namespace
