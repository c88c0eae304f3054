// File helpers and pid files: trees under attack, locks, processes that are no longer who they were.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <tuple>

#include "capture.h"
#include "velm/file.h"
#include "velm/process.h"

namespace fs = std::filesystem;

namespace {

// What another process does just before each unlinkat of this one.
struct {
  int writes = 0;        // so many files into a directory that is about to go
  bool removes = false;  // the very thing
} g_Other;

}  // namespace

// In place of the C library's.
extern "C" __attribute__((visibility("default"))) int unlinkat(int dir, const char* name, int flags) noexcept {
  if ((flags & AT_REMOVEDIR) != 0 && g_Other.writes > 0) {
    --g_Other.writes;
    const int fd = openat(dir, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    close(openat(fd, "late", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    close(fd);
  }
  if (g_Other.removes) syscall(SYS_unlinkat, dir, name, flags);
  return static_cast<int>(syscall(SYS_unlinkat, dir, name, flags));
}

namespace {

// Links lead nowhere else, and somebody else is at work in the same tree, at the worst moments.
TEST(Tree, IsRemovedUnderTheHandsOfWritersAndOtherRemovers) {
  constexpr int kForEver = 1 << 20;
  fs::create_directories("/tmp/outside/keep");
  const std::tuple<int, bool, int> cases[] = {
      {0, false, 0}, {1, false, 0}, {5, false, 0}, {kForEver, false, -1}, {0, true, 0}};
  for (const auto& [writes, removes, result] : cases) {
    fs::create_directories("/tmp/busy/inner");
    fs::create_directory_symlink("/tmp/outside", "/tmp/busy/inner/link");
    WriteFile("/tmp/busy/inner/file", "x");
    g_Other = {writes, removes};
    EXPECT_EQ(QmRm("/tmp/busy"), result) << writes;
    EXPECT_EQ(fs::exists("/tmp/busy"), result != 0) << writes;
    EXPECT_TRUE(result == 0 || g_Other.writes > kForEver - 100) << "gave up late";
    g_Other = {};
    fs::remove_all("/tmp/busy");
  }
  EXPECT_TRUE(fs::exists("/tmp/outside/keep"));
  for (const char* none : {"/tmp/busy", ""}) EXPECT_EQ(QmRm(none), -1);
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
