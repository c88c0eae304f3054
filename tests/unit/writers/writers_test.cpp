// Multipart answers as a client sees them, and clients that go away or stall.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "capture.h"
#include "velm/writers.h"

namespace {

volatile sig_atomic_t gTerminated = 0;

int WritePart(MultipartResponse& response, const std::string& picture) {
  return response.Write("image/jpeg", picture.data(), static_cast<int>(picture.size()), nullptr, nullptr);
}

// A child whose standard output is a pipe, in the middle of its first part; `body` says whether all went well there.
class PipedChild {
 public:
  explicit PipedChild(const std::function<bool(MultipartResponse&)>& body)
      : m_Made(pipe(m_Pipe)), m_Child([&] {
          dup2(m_Pipe[1], STDOUT_FILENO);
          close(m_Pipe[0]);
          close(m_Pipe[1]);
          struct sigaction action {};
          action.sa_handler = [](int) { gTerminated = 1; };  // interrupts a blocked write, as in the module
          sigaction(SIGTERM, &action, nullptr);
          MultipartResponse response;
          _exit(body(response) && gTerminated != 0 ? 42 : 1);
        }) {
    close(m_Pipe[1]);
    EXPECT_GT(Read(), 0);
  }
  ssize_t Read() {
    char buffer[1000];
    return read(m_Pipe[0], buffer, sizeof(buffer));
  }
  void Leave() { close(m_Pipe[0]); }
  void Terminate() { kill(m_Child.pid(), SIGTERM); }
  bool EndsWell() { return WEXITSTATUS(m_Child.Wait(10000)) == 42; }

 private:
  int m_Pipe[2] = {-1, -1};
  int m_Made;
  Child m_Child;
};

TEST(Multipart, EveryPartIsClosedByTheNextBoundaryAtOnce) {
  const std::string text = CaptureOutput([] {
    MultipartResponse response;
    EXPECT_EQ(WritePart(response, "one"), 0);
    EXPECT_EQ(response.Write("image/jpeg", "second", 6, "X-Seq", "7"), 0);
    EXPECT_EQ(response.Write("image/jpeg", "", -1, nullptr, nullptr), -1);
  });
  const auto at = text.find("boundary=") + 9;
  const std::string boundary = text.substr(at, text.find("\r\n", at) - at);
  EXPECT_EQ(text, "Content-Type: multipart/x-mixed-replace; boundary=" + boundary +
                      "\r\nCache-Control: no-store\r\n\r\n--" + boundary +
                      "\r\nContent-Type: image/jpeg\r\nContent-Length: 3\r\n\r\none\r\n--" + boundary +
                      "\r\nContent-Type: image/jpeg\r\nContent-Length: 6\r\nX-Seq: 7\r\n\r\nsecond\r\n--" + boundary +
                      "\r\n");
}

TEST(Multipart, AClientThatLeftBecomesATermination) {
  PipedChild piped([](MultipartResponse& response) {
    while (WritePart(response, std::string(300000, 'p')) == 0) continue;
    return true;
  });
  piped.Leave();
  EXPECT_TRUE(piped.EndsWell());
}

TEST(Multipart, ASignalCutsAPartOnlyWhenTheClientStalls) {
  const std::string picture(4000000, 'p');
  for (const bool stalls : {false, true}) {
    PipedChild piped([&](MultipartResponse& response) { return WritePart(response, picture) == (stalls ? -1 : 0); });
    piped.Terminate();
    std::size_t taken = 1000;
    for (ssize_t count; !stalls && (count = piped.Read()) > 0;) taken += static_cast<std::size_t>(count);
    EXPECT_EQ(taken > picture.size(), !stalls);
    EXPECT_TRUE(piped.EndsWell());
    piped.Leave();
  }
}

}  // namespace
