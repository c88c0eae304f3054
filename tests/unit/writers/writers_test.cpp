// Multipart answers as a client sees them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "capture.h"
#include "front/unique_fd.h"
#include "velm/writers.h"
#include "writers/lent_bytes.h"

namespace {

// What comes out of a pipe that `body` writes to as its standard output.
std::string ThroughPipe(const std::function<void()>& body) {
  int ends[2] = {};
  EXPECT_EQ(pipe(ends), 0);
  const int saved = dup(STDOUT_FILENO);
  dup2(ends[1], STDOUT_FILENO);
  close(ends[1]);
  std::string text;
  std::thread reader([&] { text = ReadFile("/proc/self/fd/" + std::to_string(ends[0])); });
  body();
  dup2(saved, STDOUT_FILENO);
  close(saved);
  reader.join();
  close(ends[0]);
  return text;
}

TEST(Multipart, EveryPartIsClosedByTheNextBoundaryAtOnce) {
  const std::string text = CaptureOutput([] {
    MultipartResponse response;
    EXPECT_EQ(response.Write("image/jpeg", "one", 3, nullptr, nullptr), 0);
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

// From the file, what is no longer there from memory, and what was not lent from memory alone.
TEST(Multipart, AFrameSentFromItsFileIsTheFrame) {
  std::string frame;
  for (int i = 0; i < 100000; ++i) frame += std::to_string(i);
  const int size = static_cast<int>(frame.size());
  for (const std::size_t kept : {frame.size(), frame.size() / 2, std::size_t{0}}) {
    WriteFile("/tmp/frames", "head" + frame.substr(0, kept));
    const oculora::UniqueFd file(open("/tmp/frames", O_RDONLY | O_CLOEXEC));
    const auto write = [&] {
      MultipartResponse response;
      oculora::Lend({frame.data(), frame.size(), file.Get(), 4});
      EXPECT_EQ(response.Write("image/jpeg", frame.data(), size, nullptr, nullptr), 0);
      oculora::Lend({frame.data(), frame.size(), file.Get(), 0});
      EXPECT_EQ(response.Write("image/jpeg", frame.data() + 1, size - 1, nullptr, nullptr), 0);
      EXPECT_EQ(response.Write("image/jpeg", frame.data(), size, nullptr, nullptr), 0) << "lent for one part";
    };
    const std::string text = ThroughPipe(write);
    EXPECT_EQ(text, CaptureOutput(write)) << kept;
    const std::size_t first = text.find("\r\n\r\n0123") + 4, second = text.find("\r\n\r\n123", first) + 4;
    EXPECT_EQ(text.compare(first, frame.size(), frame), 0) << kept;
    EXPECT_EQ(text.compare(second, frame.size() - 1, frame, 1), 0) << kept;
    EXPECT_EQ(text.compare(text.find("\r\n\r\n0123", second) + 4, frame.size(), frame), 0) << kept;
  }
}

}  // namespace
