// Which processes a pid file still names.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>

#include "capture.h"
#include "velm/process.h"

namespace {

constexpr char kPath[] = "/tmp/pid-file";

void BackDate(long seconds) {
  const time_t when = time(nullptr) - seconds;
  const timespec times[] = {{when, 0}, {when, 0}};
  utimensat(AT_FDCWD, kPath, times, 0);
}

TEST(PidFile, NamesOnlyALiveProcessOfItsTime) {
  EXPECT_FALSE(ProcAliveByPidFile(kPath));
  ASSERT_EQ(CreatePidFile(kPath), 0);
  EXPECT_EQ(ReadFile(kPath), std::to_string(getpid()) + "\n");
  EXPECT_TRUE(ProcAliveByPidFile(kPath));
  BackDate(3600);
  EXPECT_FALSE(ProcAliveByPidFile(kPath)) << "the pid was handed out again after the file was written";
  for (const char* text : {"", "0\n", "1\n", "-1\n", "abc\n", "99999999999\n"}) {
    WriteFile(kPath, text);
    EXPECT_FALSE(ProcAliveByPidFile(kPath)) << text;
    EXPECT_EQ(ProcSignalByPidFile(kPath, 0), -1) << text;
  }
}

TEST(PidFile, AZombieIsNotAlive) {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
  WriteFile(kPath, std::to_string(child));
  EXPECT_FALSE(ProcAliveByPidFile(kPath));
  waitpid(child, nullptr, 0);
}

TEST(PidFile, SignalsReachTheProcessButNeverTheCaller) {
  Child child([] { pause(); });
  WriteFile(kPath, std::to_string(child.pid()));
  ClearOldProcess(kPath, SIGKILL);
  const int status = child.Wait(5000);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  ASSERT_EQ(ProcPidFileCreate(kPath), 0);
  ClearOldProcess(kPath, SIGKILL);  // this process lives on
}

}  // namespace
