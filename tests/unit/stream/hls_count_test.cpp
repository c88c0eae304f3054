// The reference count of a remux: a remux found in every state, and starts that come to nothing.
#include <signal.h>
#include <unistd.h>

#include "hls_fixture.h"

namespace fs = std::filesystem;

namespace {

using HlsCount = HlsTest;

TEST_F(HlsCount, OfARemuxInEveryState) {
  enum Process { kNone, kDead, kLive };
  enum Outcome { kKept, kEnded, kRestarted, kRefused };
  const struct {
    const char* method;
    std::string count;
    Process process;
    int untouched;  // seconds
    Outcome outcome;
    const char* after;
    const char* line = "";
  } cases[] = {
      {"Open", "1\n", kLive, 0, kKept, "2\n", "HandleOpen: Cam[20]: FFMPEG has been already running.\n"},
      {"Open", "9\n", kLive, 60, kKept, "10\n"},
      {"Open", "5\n", kLive, 61, kRestarted, "1\n"},
      {"Open", "3\n", kDead, 0, kRestarted, "1\n"},
      {"Open", "0\n", kLive, 0, kRestarted, "1\n"},  // a Close that was killed half-way
      {"Open", "?\n", kLive, 0, kKept, "?\n", "HandleOpen: Cam[20]: FFMPEG has been already running.\n"},
      {"Close", "10\n", kLive, 0, kKept, "9\n\n", "StopFfmpegRemux: Cam[20]: 9 user(s) remain streaming.\n"},
      {"Close", "1\n", kLive, 0, kEnded, ""},
      {"Close", "?\n", kLive, 0, kEnded, ""},
      {"Close", "1\n", kDead, 0, kEnded, ""},
      {"Close", "1\n", kNone, 0, kRefused, "1\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.method + (" " + c.count) + std::to_string(c.process) + std::to_string(c.untouched));
    Child remux([] { signal(SIGINT, SIG_DFL), pause(); });
    if (c.process == kDead) kill(remux.pid(), SIGKILL), remux.Wait(5000);
    fs::create_directories(Dir());
    WriteFile(Dir() + "/cnt", c.count);
    const time_t touched = time(nullptr) + 1;  // not before the process started
    if (c.process != kNone) WriteFile(PidPath(), std::to_string(remux.pid())), Touch(touched);
    g_World.now = touched + c.untouched;

    Child request = Start(c.method, "20&format=hls");
    if (c.outcome == kRestarted) {
      const pid_t pid = RemuxPid(remux.pid());
      EXPECT_EQ(ReadFile(Dir() + "/cnt"), c.after);
      kill(pid, SIGTERM);
      EXPECT_TRUE(Ends(pid));
    } else {
      EXPECT_EQ(request.Wait(20000), 0);
      const std::string refusal = std::string(">Content-type: text/plain\r\n\r\nAlready closed.\n\r") + kFailure;
      EXPECT_EQ(ReadFile("/tmp/answer"), c.outcome == kRefused ? refusal : kSuccess);
      EXPECT_EQ(ReadFile(Dir() + "/cnt"), c.after);
      EXPECT_EQ(fs::exists(Dir()), c.outcome != kEnded);
    }
    EXPECT_TRUE(Logged(c.line)) << ReadFile(oculora::kLogPath);
    const bool stopped = c.process == kLive && (c.outcome == kEnded || c.outcome == kRestarted);
    EXPECT_TRUE(c.process == kDead || remux.Wait(stopped ? 20000 : 20) == (stopped ? SIGINT : -1));
    for (const std::string& path : {oculora::kLogPath + std::string(), PidPath(), Dir()}) fs::remove_all(path);
  }
}

TEST_F(HlsCount, ACloseWaitsForARemuxThatIsJustStarting) {
  g_World.atFork = SIGSTOP;
  const Child open = Start("Open", "20&format=hls");
  ASSERT_TRUE(Until([] { return g_World.forked != 0; }));
  Child close = Start("Close", "20");
  EXPECT_EQ(close.Wait(100), -1);
  kill(g_World.forked, SIGCONT);
  EXPECT_EQ(close.Wait(20000), 0);
  EXPECT_TRUE(Ends(g_World.forked) && IsGone());
}

TEST_F(HlsCount, NothingIsCountedWhenNothingStarts) {
  EXPECT_EQ(Ask("Open", "22&format=hls"), std::string(">") + kFailure);
  EXPECT_TRUE(Logged("SetupFfmpegRemux: Cam[22]: Failed to attach live stream buf.\n"));
  EXPECT_TRUE(Logged("HandleOpen: Cam[22]: Failed to setup ffmpeg remux.\n"));
  EXPECT_FALSE(fs::exists(Dir(kStreamlessCam))) << "the count went with it";
  for (const std::string format : {"HLS", "", "mjpeg"}) EXPECT_EQ(Ask("Open", "20&format=" + format), kSuccess);
  EXPECT_TRUE(IsGone());
}

}  // namespace
