// Keeping real programs alive and ending them.
#include "front/program_keeper.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "capture.h"
#include "front/listener.h"

namespace oculora {
namespace {

bool HasChildren() { return waitpid(-1, nullptr, WNOHANG) >= 0 || errno != ECHILD; }

std::vector<std::string> Shell(const std::string& script) { return {"/bin/sh", "-c", script}; }

// Waits until a program of the test has written `path`.
bool WaitForFile(ProgramKeeper& keeper, const char* path) {
  return keeper.WaitUntil([path] { return !ReadFile(path).empty(); }, 10);
}

TEST(ProgramKeeper, EndsOrphansToo) {
  ProgramKeeper keeper;
  ASSERT_TRUE(keeper.Start("a parent", Shell("(setsid sleep 1000 & echo $! >/tmp/orphan); exec sleep 1000")));
  ASSERT_TRUE(WaitForFile(keeper, "/tmp/orphan"));
  keeper.StopAll();
  EXPECT_FALSE(HasChildren());
  EXPECT_NE(kill(std::atoi(ReadFile("/tmp/orphan").c_str()), 0), 0);
}

TEST(ProgramKeeper, ASecondSignalEndsTheStubborn) {
  ProgramKeeper keeper;
  ASSERT_TRUE(keeper.Start("a mule", Shell("trap '' TERM; echo up >/tmp/up; while :; do sleep 1; done")));
  ASSERT_TRUE(WaitForFile(keeper, "/tmp/up"));
  kill(getpid(), SIGTERM);
  const time_t start = time(nullptr);
  keeper.StopAll();
  EXPECT_LT(time(nullptr) - start, 9);
  EXPECT_FALSE(HasChildren());
}

TEST(ProgramKeeper, RunRestartsUntilTold) {
  ProgramKeeper keeper;
  const std::string parent = std::to_string(getpid());
  // The first run dies, the second tells the keeper to stop.
  ASSERT_TRUE(keeper.Start("a phoenix", Shell("if test -e /tmp/died; then kill -TERM " + parent +
                                              "; exec sleep 1000; fi; : >/tmp/died; kill -SEGV $$")));
  keeper.Run();
  EXPECT_TRUE(keeper.StopRequested());
  keeper.StopAll();
  EXPECT_FALSE(HasChildren());
}

TEST(ProgramKeeper, WaitingEndsWithTheProgram) {
  ProgramKeeper keeper;
  ASSERT_TRUE(keeper.Start("a mayfly", {"/no/such/program"}));
  EXPECT_FALSE(keeper.WaitUntil([] { return false; }, 60));
}

TEST(ProgramKeeper, HandsOverTheSocket) {
  ProgramKeeper keeper;
  std::string error;
  const Listener listener = OpenListener("127.0.0.1", 0, &error);
  ASSERT_TRUE(listener.socket.IsValid()) << error;
  ASSERT_TRUE(keeper.Start("a server",
                           Shell("echo $LISTEN_FDS $((LISTEN_PID - $$)) >/tmp/env; "
                                 "readlink /proc/$$/fd/3 >/tmp/fd3; exec sleep 1000"),
                           listener.socket.Get()));
  ASSERT_TRUE(WaitForFile(keeper, "/tmp/fd3"));
  EXPECT_EQ(ReadFile("/tmp/env"), "1 0\n");
  EXPECT_EQ(ReadFile("/tmp/fd3").rfind("socket:", 0), 0U);
}

TEST(Listener, ProbesOnlyWhatSpeaksHttp) {
  std::string error;
  Listener silent = OpenListener("127.0.0.1", 0, &error);
  ASSERT_TRUE(silent.socket.IsValid()) << error;
  EXPECT_EQ(ProbeHttp("127.0.0.1", silent.port, 50), 0);
  EXPECT_FALSE(OpenListener("127.0.0.1", silent.port, &error).socket.IsValid());
  EXPECT_NE(error.find("--port"), std::string::npos);
  silent.socket.Reset();
  EXPECT_EQ(ProbeHttp("127.0.0.1", silent.port, 50), -1);
}

}  // namespace
}  // namespace oculora
