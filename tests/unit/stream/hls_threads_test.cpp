// Feeder and real segmenter in one process: for ThreadSanitizer, and with every other build from Open to Close.
#include <unistd.h>

#include "hls_fixture.h"

namespace {

using HlsThreads = HlsTest;

std::string Bytes(std::initializer_list<int> values) { return {values.begin(), values.end()}; }

// A picture of 16 x 16: parameter sets, then one macroblock of plain samples.
std::string Picture(int number) {
  const std::string sets = Bytes({0, 0, 0, 1, 0x67, 66, 0xC0, 10, 0xDD, 0xC4, 0, 0, 0, 1, 0x68, 0xCE, 0x38, 0x80});
  // Neighbouring key pictures differ in their idr_pic_id.
  const std::string head = number % 2 == 0 ? Bytes({0x88, 0x84, 0x86, 0x80}) : Bytes({0x88, 0x82, 0x21, 0xA0});
  const std::string samples(384, static_cast<char>(16 + number % 200));
  return sets + Bytes({0, 0, 0, 1, 0x65}) + head + samples + Bytes({0x80});
}

TEST_F(HlsThreads, OpenWatchClose) {
  const Child camera([this] {
    for (int number = 0;; ++number, usleep(20000)) Write(Picture(number), true);
  });
  EXPECT_EQ(Ask("Open", "20&format=hls"), kSuccess);
  const pid_t pid = RemuxPid();
  const std::string playlist = Ask("Stream", "20");
  const std::size_t entry = playlist.find("http://nvr:80/webapi/entry.cgi?");
  const std::size_t id = playlist.find("&SliceId=20/", entry);  // of whichever slice is the oldest by now
  ASSERT_NE(id, std::string::npos) << playlist << ReadFile(oculora::kLogPath);
  const std::string slice = Ask("Stream", "20" + playlist.substr(id, playlist.find('\n', id) - id));
  const std::size_t body = slice.find("\r\n\r\n") + 4;
  EXPECT_GT(slice.size(), body + 1000);
  EXPECT_EQ((slice.size() - body) % 188, 0U);
  for (std::size_t at = body; at < slice.size(); at += 188) ASSERT_EQ(slice[at], 'G') << at;
  EXPECT_EQ(Ask("Close", "20"), kSuccess);
  EXPECT_TRUE(Ends(pid)) << ReadFile("/tmp/segmenter/races." + std::to_string(pid));  // not 0 after a race
}

}  // namespace
