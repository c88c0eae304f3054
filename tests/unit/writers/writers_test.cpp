// Multipart answers as a client sees them, and clients that go away or stall.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>

#include "capture.h"
#include "velm/timing.h"
#include "velm/writers.h"

namespace {

volatile sig_atomic_t gTerminated = 0;

// Runs `body` in a child whose standard output is the write end of a pipe.
class PipedChild {
 public:
  explicit PipedChild(const std::function<void()>& body)
      : m_Made(pipe(m_Pipe) == 0), m_Child([&] {
          close(m_Pipe[0]);
          dup2(m_Pipe[1], STDOUT_FILENO);
          close(m_Pipe[1]);
          struct sigaction action {};
          action.sa_handler = [](int) { gTerminated = 1; };  // interrupts a blocked write, as in the module
          sigaction(SIGTERM, &action, nullptr);
          body();
        }) {
    close(m_Pipe[1]);
  }
  ~PipedChild() { CloseReader(); }

  void CloseReader() {
    if (m_Made) close(m_Pipe[0]);
    m_Made = false;
  }
  std::size_t ReadSome(std::size_t size) {
    std::string buffer(size, 0);
    return static_cast<std::size_t>(std::max<ssize_t>(read(m_Pipe[0], buffer.data(), size), 0));
  }
  std::string ReadAll() {
    std::string text;
    char buffer[65536];
    for (ssize_t count; (count = read(m_Pipe[0], buffer, sizeof(buffer))) > 0;)
      text.append(buffer, static_cast<std::size_t>(count));
    return text;
  }
  Child& child() { return m_Child; }

 private:
  int m_Pipe[2] = {-1, -1};
  bool m_Made;
  Child m_Child;
};

TEST(Multipart, EveryPartIsClosedByTheNextBoundaryAtOnce) {
  const std::string text = CaptureOutput([] {
    MultipartResponse response;
    EXPECT_EQ(response.Write("image/jpeg", "one", 3, nullptr, nullptr), 0);
    EXPECT_EQ(response.Write("image/jpeg", "second", 6, "X-Seq", "7"), 0);
    EXPECT_EQ(response.Write("image/jpeg", "", -1, nullptr, nullptr), -1);
  });
  const std::string key = "boundary=";
  const auto at = text.find(key) + key.size();
  const std::string boundary = text.substr(at, text.find("\r\n", at) - at);
  EXPECT_EQ(text, "Content-Type: multipart/x-mixed-replace; boundary=" + boundary +
                      "\r\nCache-Control: no-store\r\n\r\n--" + boundary +
                      "\r\nContent-Type: image/jpeg\r\nContent-Length: 3\r\n\r\none\r\n--" + boundary +
                      "\r\nContent-Type: image/jpeg\r\nContent-Length: 6\r\nX-Seq: 7\r\n\r\nsecond\r\n--" + boundary +
                      "\r\n");
}

TEST(Multipart, AClientThatLeftBecomesATermination) {
  PipedChild piped([] {
    MultipartResponse response;
    const std::string picture(300000, 'p');
    while (response.Write("image/jpeg", picture.data(), static_cast<int>(picture.size()), nullptr, nullptr) == 0) {
    }
    _exit(gTerminated != 0 ? 42 : 1);
  });
  piped.ReadSome(1000);
  piped.CloseReader();
  EXPECT_EQ(WEXITSTATUS(piped.child().Wait(5000)), 42);
}

TEST(Multipart, ASignalDoesNotCutAPartWhileTheClientReads) {
  const std::string picture(4000000, 'p');
  PipedChild piped([&] {
    MultipartResponse response;
    _exit(response.Write("image/jpeg", picture.data(), static_cast<int>(picture.size()), nullptr, nullptr) == 0 &&
                  gTerminated != 0
              ? 42
              : 1);
  });
  std::size_t taken = piped.ReadSome(1000);
  kill(piped.child().pid(), SIGTERM);
  taken += piped.ReadAll().size();
  EXPECT_GT(taken, picture.size());
  EXPECT_EQ(WEXITSTATUS(piped.child().Wait(5000)), 42);
}

TEST(Multipart, ASignalEndsAWriteToAStalledClient) {
  const std::string picture(4000000, 'p');
  PipedChild piped([&] {
    MultipartResponse response;
    _exit(response.Write("image/jpeg", picture.data(), static_cast<int>(picture.size()), nullptr, nullptr) == -1 ? 42
                                                                                                                 : 1);
  });
  piped.ReadSome(1000);  // then nothing more
  kill(piped.child().pid(), SIGTERM);
  EXPECT_EQ(WEXITSTATUS(piped.child().Wait(10000)), 42);
}

TEST(WriteWithHeader, HeaderThenBodyBehindWhatStdioHeld) {
  EXPECT_EQ(CaptureOutput([] {
              printf("before ");
              WriteWithHeader writer("Content-Type: video/MP2T\r\n\r\n");
              writer.WriteHeader(nullptr);
              writer.WriteResponse("body", 4);
              EXPECT_EQ(writer.WriteResponse("body", -1), -1);
            }),
            "before Content-Type: video/MP2T\r\n\r\nbody");
}

TEST(DelayTimer, PassesAreAPeriodApartAndLatePassesDoNotCatchUp) {
  using Clock = std::chrono::steady_clock;
  DelayTimer timer(20000);
  timer.BeginTiming();
  usleep(50000);
  const auto start = Clock::now();
  timer.Delay();  // already late
  timer.Delay();
  const auto waited = Clock::now() - start;
  EXPECT_GE(waited, std::chrono::milliseconds(19));
}

}  // namespace
