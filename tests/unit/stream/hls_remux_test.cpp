// The remux process from Open to its end, with a segmenter that misbehaves as it is told.
#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

#include "hls_fixture.h"

namespace fs = std::filesystem;

namespace {

class HlsRemux : public HlsTest {
 protected:
  static std::string Cam(int cam = kCam) { return std::to_string(cam) + "&format=hls"; }

  static pid_t Forked() {
    EXPECT_TRUE(Until([] { return g_World.forked != 0; }));
    return g_World.forked;
  }
  // Waits until the remux has looked at the ring once more.
  static void AwaitReading(int cam = kCam) {
    std::int64_t last = 0;
    int looks = 0;
    EXPECT_TRUE(Until([&] {
      oculora::RingStatus status;
      oculora::ReadRingStatus({cam, 0}, status);
      if (fs::exists(Dir(cam) + "/fifo") && std::exchange(last, status.stampUs) != status.stampUs) ++looks;
      return looks > 3;
    }));
  }
  static std::size_t BytesRead() { return ReadFile(kBytes).size(); }
  static std::size_t BytesInPipe(int cam) {
    int bytes = 0;
    const int fd = open((Dir(cam) + "/fifo").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ioctl(fd, FIONREAD, &bytes);
    close(fd);
    return static_cast<std::size_t>(bytes);
  }
  // The remux of an Open, when it has written one key frame (none of 0 bytes), or as much of it as the pipe takes.
  pid_t FirstFrame(std::size_t bytes, int cam = kCam) {
    const pid_t pid = RemuxPid(0, cam);
    AwaitReading(cam);
    if (bytes > 0) Write(std::string(bytes, 'k'), true, cam);
    EXPECT_TRUE(Until([&] { return BytesRead() + BytesInPipe(cam) >= std::min<std::size_t>(bytes, 200000); }));
    if (bytes < 200000) AwaitReading(cam);
    return pid;
  }
};

TEST_F(HlsRemux, ASegmenterThatFailsEndsTheRemuxAtOnce) {
  const std::pair<const char*, std::string> cases[] = {
      {"input:2", "Failed to open /tmp/ndcam/20/fifo. err = 2."},
      {"output:5", "Failed to open /tmp/ndcam/20/%d.ts. err = 5."},
      {"transcode:1", "Failed to transcode. err = 1."},
  };
  const Child camera = Camera();
  for (const auto& [mode, line] : cases) {
    SetMode(mode);
    const Child open = Start("Open", Cam());
    EXPECT_TRUE(Ends(RemuxPid()) && IsGone()) << mode;
    EXPECT_TRUE(Logged("FFmpegH264Remux: Cam[20]: " + line + "\n")) << ReadFile(oculora::kLogPath);
  }
}

TEST_F(HlsRemux, AStopAtAnyMomentLeavesNothingBehind) {
  const Child camera = Camera();
  std::mt19937 random(20);
  for (unsigned i = 0; i <= 64; ++i) {
    const std::string mode = i < 64 ? std::vector{"read", "late", "unread", "input:2"}[i % 4] : "deaf";
    const unsigned stop = i / 4 % 4;  // at the fork, SIGINT, SIGTERM, Close
    const auto delayUs = static_cast<useconds_t>(random() % (i % 3 == 0 ? 2000 : 40000));
    SCOPED_TRACE(mode + " " + std::to_string(stop) + " " + std::to_string(delayUs));
    SetMode(mode);
    g_World.forked = 0;
    if (stop == 0 && i < 64) g_World.atFork = i % 2 == 0 ? SIGINT : SIGTERM;
    const Child open = Start("Open", Cam());
    const pid_t pid = stop == 0 ? Forked() : RemuxPid();
    if (i == 64) Until([] { return ReadFile(kCalls).find("input") != std::string::npos; });
    if (stop != 0) usleep(delayUs);
    if (stop == 3) Ask("Close", Cam());
    if (stop == 1 || stop == 2 || i == 64) kill(pid, stop == 1 ? SIGINT : SIGTERM);
    ASSERT_TRUE(Ends(pid) && IsGone());
  }
  EXPECT_FALSE(Logged("without the lock"));
}

TEST_F(HlsRemux, SilenceEndsItAfterThirtySeconds) {
  // Of a camera without key frames, of one that stops sending, and of a segmenter that does not read.
  for (const std::size_t firstBytes : {0, 1000, 400000}) {
    SCOPED_TRACE(firstBytes);
    SetMode(firstBytes > 1000 ? "unread" : "read");
    const time_t start = g_World.now = time(nullptr);
    const Child open = Start("Open", Cam());
    const pid_t pid = FirstFrame(firstBytes);
    g_World.now = start + 30;
    EXPECT_TRUE(Runs(pid));
    g_World.now = start + 31;
    EXPECT_TRUE(Ends(pid));
    EXPECT_TRUE(Logged("OutputH264Data: Cam[20]: No data timeout break\n"));
    fs::remove(oculora::kLogPath);
  }
}

TEST_F(HlsRemux, WithoutASliceRequestItEndsAfterAMinuteOfVideo) {
  const std::pair<int, int> framesPerCheck[] = {{kCam, 60}, {kUnratedCam, 0}};
  for (const auto& [id, count] : framesPerCheck) {
    const int cam = id;
    const time_t start = g_World.now = time(nullptr);
    const Child open = Start("Open", Cam(cam));
    const pid_t pid = FirstFrame(1000, cam);
    std::size_t bytes = 1000;
    const auto feed = [&](int frames) {
      for (; frames > 0; --frames, ++bytes) Write("p", false, cam);
      EXPECT_TRUE(Until([&] { return BytesRead() == bytes; })) << BytesRead() << " of " << bytes;
    };
    Touch(start - 60, cam);
    feed(count + 1);
    EXPECT_TRUE(Runs(pid)) << "touched exactly a minute ago";
    Touch(start - 61, cam);
    feed(count);
    EXPECT_TRUE(Runs(pid)) << "not looked at yet";
    EXPECT_FALSE(Logged("NO ACCESS"));
    Write("p", false, cam);
    EXPECT_TRUE(Ends(pid));
    EXPECT_TRUE(Logged("OutputH264Data: Cam[" + std::to_string(cam) + "]: NO ACCESS break\n"));
    fs::remove(oculora::kLogPath);
  }
}

TEST_F(HlsRemux, EveryByteFromTheFirstKeyFrameOnReachesTheSegmenterInOrder) {
  SetMode("slow");
  const Child open = Start("Open", Cam());
  const pid_t pid = RemuxPid();
  AwaitReading();
  for (int i = 0; i < 20; ++i) Write("before the key frame", false);
  usleep(100000);
  EXPECT_EQ(ReadFile(kCalls), "") << "the segmenter is not started before";
  std::string expected;
  const std::size_t sizes[] = {700, 1, 3 << 20, 4095, 4096, 4097, 262144, 1 << 20, 65536, 5};
  for (std::size_t i = 0; i < std::size(sizes); ++i) {
    std::string frame(sizes[i], '\0');
    for (std::size_t at = 0; at < frame.size(); ++at) frame[at] = static_cast<char>(at / 251 + i * 31 + at);
    Write(frame, i == 0);
    expected += frame;
  }
  EXPECT_TRUE(Until([&] { return BytesRead() >= expected.size(); }));
  EXPECT_TRUE(ReadFile(kBytes) == expected) << BytesRead() << " of " << expected.size();
  kill(pid, SIGTERM);
  EXPECT_TRUE(Ends(pid));
}

TEST_F(HlsRemux, TheSegmenterGetsItsNamesAndNothingOfTheRequest) {
  const std::pair<std::string, std::string> cases[] = {
      {"", "&_sid=" + SessionOf("root") + "&cameraId=20&isRedirectCgi=0&SliceId=20/"},
      {"&isRedirectCgi=1&StmKey=key&CamIdOnHost=5&SID=abc", "&_sid=abc&cameraId=5&isRedirectCgi=1&SliceId=20/"},
      {"&isRedirectCgi=1&StmKey=key", "&cameraId=0&isRedirectCgi=1&SliceId=20/"},
  };
  WriteFile("/var/packages/Oculora/target/@rtsp_info/rtsp_key", "20=key/key2\n");
  const Child camera = Camera();
  for (const auto& [params, prefix] : cases) {
    EXPECT_EQ(Ask("Open", Cam() + params), kSuccess) << "what stdio held is written once";
    EXPECT_EQ(ReadFile(kCalls),
              "init \ninput fifo\noutput %d.ts\ntranscode __HTTPHOST_PREFIX__/webapi/entry.cgi?"
              "api=VELM.Oculora.Stream.VideoStreaming&method=Stream&version=1" +
                  prefix + " 1\n");
    const pid_t pid = RemuxPid();
    for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd")) {
      std::error_code gone;
      const std::string target = fs::read_symlink(entry.path(), gone);
      // The records stay open: they are the host's. What the segmenter opened is its own.
      EXPECT_TRUE(gone || target == "/" || target == "/tmp/ndcam/20/fifo" || target == kBytes ||
                  target.ends_with("records.db"))
          << target;
    }
    EXPECT_EQ(Ask("Close", Cam()), kSuccess);
    EXPECT_TRUE(Ends(pid));
  }
}

TEST_F(HlsRemux, OneThatEndsLateLeavesItsSuccessorAlone) {
  const Child camera = Camera(20000);
  for (int i = 0; i < 6; ++i) {
    SCOPED_TRACE(i);
    g_World.haste = i == 0 ? 10 : 1;  // the lock of a stopped process is waited for
    g_World.forked = 0;
    if (i == 0) g_World.atFork = SIGSTOP;  // before it has a pid file
    const Child first = Start("Open", Cam());
    const pid_t old = i == 0 ? Forked() : RemuxPid();
    usleep(8000U * static_cast<unsigned>(i));
    kill(old, SIGSTOP);
    g_World.now = time(nullptr) + 61;
    Child second = Start("Open", Cam());
    const pid_t current = RemuxPid(old);
    EXPECT_EQ(second.Wait(20000), 0);
    g_World.now = 0;
    kill(old, SIGCONT);
    EXPECT_TRUE(Ends(old));
    EXPECT_TRUE(Runs(current));
    EXPECT_EQ(std::atoi(ReadFile(PidPath()).c_str()), current);
    EXPECT_EQ(ReadFile(Dir() + "/cnt"), "1\n");
    EXPECT_FALSE(fs::exists(Dir() + "/last.ts")) << "written by the old one";
    EXPECT_EQ(Ask("Close", Cam()), kSuccess);
    EXPECT_TRUE(Ends(current));
  }
}

}  // namespace
