// Live view of MxPEG cameras: time stamps in pictures, sound behind them, what is left out after a loss.
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <thread>
#include <vector>

#include "hls_fixture.h"
#include "velm/camera.h"
#include "velm/shmstream.h"
#include "video/mxpeg_segments.h"

namespace {

using oculora::RingKind;
using oculora::RingWriter;

constexpr std::int64_t kStamp = 0x0102030405060708;
const std::string kStamped("\x08\x07\x06\x05\x04\x03\x02\x01", 8);
constexpr int kMxpegCam = 30;

std::string Comment(const std::string& name, std::size_t bytes) {
  std::string segment("\xff\xfe\xff\xff", 4);  // a length that lies
  segment += name;
  segment.resize(bytes, '.');
  return segment;
}

TEST(MxpegSegments, FirstStampedCommentGetsTheTime) {
  const std::string mxf = Comment("MXF", 20);
  const struct {
    std::string picture;
    std::size_t stampAt;  // 0: nothing is written
  } cases[] = {
      {"", 0},
      {mxf.substr(0, 7), 0},
      {"\xff\xd8" + mxf + mxf, 14},                                  // the first one only
      {"\xff\xd8" + Comment("MXM", 30) + "\xff\xff\xff" + mxf, 47},  // another comment, fill bytes
      {"\xff\xd8" + mxf.substr(0, 19), 0},                           // ends before the time stamp does
      {std::string(5000, '\xff') + mxf.substr(0, 7), 0},             // where the search has stopped
      {std::string("\xff\xd8\xff\xfe\0\0MXF", 9) + mxf, 14},
  };
  for (const auto& c : cases) {
    // The exact size on the heap, so that a byte outside is noticed by the sanitizer.
    std::vector<unsigned char> picture(c.picture.begin(), c.picture.end());
    EXPECT_EQ(StampPicture(picture, kStamp), c.stampAt != 0) << c.picture;
    std::string expected = c.picture;
    if (c.stampAt != 0) expected.replace(c.stampAt, 8, kStamped);
    EXPECT_EQ(std::string(picture.begin(), picture.end()), expected);
  }
}

TEST(MxpegSegments, SoundHeaderHoldsLengthDurationAndTime) {
  unsigned char header[kSoundHeaderBytes];
  EXPECT_EQ(WriteSoundHeader(header, 8000, kStamp), 1000000U);
  EXPECT_EQ(std::string(header, header + sizeof(header)), std::string("\xff\xed\x1f\x4e\x40\x42\x0f\0", 8) + kStamped);
  EXPECT_EQ(WriteSoundHeader(header, 1001, 0), 125124U) << "cut, not rounded";
  EXPECT_EQ(WriteSoundHeader(header, kMaxSoundBytes, 0), 8190125U);
  EXPECT_EQ(std::string(header, header + 4), "\xff\xed\xff\xff");
  EXPECT_EQ(SoundRoom(100, 200), 84);
  EXPECT_EQ(SoundRoom(100, 1 << 20), kMaxSoundBytes);
  for (const int size : {184, 185, 200}) EXPECT_EQ(SoundRoom(size, 200), 0) << size;
}

class MxpegView : public HlsTest {
 protected:
  void SetUp() override {
    HlsTest::SetUp();
    oculora::CameraRecord camera{.id = kMxpegCam, .name = "MxPEG", .videoType = VIDEO_TYPE_MXPEG, .source = "test:"};
    camera.profiles = {{0, 0, 10, 320, 240}, {oculora::kMobileProfile, 1, 10, 320, 240}};
    auto database = oculora::Database::Open(oculora::Database::Mode::kReadWrite, nullptr);
    if (!database->LoadCamera(kMxpegCam)) database->AddCamera(camera);
    RingWriter::Create({kMxpegCam, 0}, 1 << 20, true);  // of the large picture, which nobody looks at
    video = RingWriter::Create({kMxpegCam, 1, RingKind::kVideo}, std::size_t{6} << 20, true);
    audio = RingWriter::Create({kMxpegCam, 1, RingKind::kAudio}, std::size_t{1} << 20, true);
  }
  void TearDown() override {
    for (const RingKind kind : {RingKind::kVideo, RingKind::kAudio}) oculora::RemoveRing({kMxpegCam, 1, kind});
    oculora::RemoveRing({kMxpegCam, 0});
    std::filesystem::remove("/tmp/answer");
    HlsTest::TearDown();
  }
  Child View() {
    std::filesystem::remove("/tmp/answer");
    return Start("Stream", "30&format=mxpeg");
  }

  void Picture(const std::string& name, std::int64_t time, bool key = false) {
    const std::string bytes = Make(name, "stampit.");
    ASSERT_GT(video.Write(bytes.data(), bytes.size(), key ? FRAME_FLAG_KEY : 0, time, VIDEO_TYPE_MXPEG), 0);
  }
  void Sound(std::size_t bytes, char sample) {
    ASSERT_GT(audio.Write(std::string(bytes, sample).data(), bytes, 0, 1, 0), 0);
  }
  static std::string Make(const std::string& name, const std::string& stamp) {
    std::string comment = Comment("MXF", 20);
    return "\xff\xd8" + comment.replace(12, 8, stamp) + name + "\xff\xd9";
  }
  // A picture as sent: stamped, with a sound block of `bytes` behind it.
  static std::string Sent(const std::string& name, char time, std::size_t bytes = 0, std::int64_t soundTime = 0) {
    std::string sent = Make(name, time + std::string(7, '\0'));
    if (bytes == 0) return sent;
    unsigned char header[kSoundHeaderBytes];
    WriteSoundHeader(header, static_cast<int>(bytes), soundTime);
    return sent.append(header, header + sizeof(header)).append(bytes, 's');
  }
  // The bodies of the answer's parts so far.
  static std::vector<std::string> Parts() {
    const std::string answer = ReadFile("/tmp/answer");
    std::vector<std::string> parts;
    for (std::size_t at = 0; (at = answer.find("Content-Length: ", at)) != std::string::npos;) {
      const auto size = std::stoul(answer.substr(at + 16));
      at = answer.find("\r\n\r\n", at) + 4;
      if (at + size > answer.size()) break;
      parts.push_back(answer.substr(at, size));
      at += size;
    }
    return parts;
  }
  void ExpectPart(std::size_t index, const std::string& expected) {
    EXPECT_TRUE(Until([&] { return Parts().size() > index; })) << ReadFile(oculora::kLogPath);
    const auto parts = Parts();
    ASSERT_EQ(parts.size(), index + 1);
    EXPECT_TRUE(parts[index] == expected) << index << ": " << parts[index].substr(0, 100);
  }

  RingWriter video;
  RingWriter audio;
};

TEST_F(MxpegView, PicturesAreStampedAndCarryTheSound) {
  Picture("key", 1, true);
  Sound(100, 'x');  // only the newest that waits at the start is sent
  Sound(800, 's');
  const Child view = View();
  Until([] { return Parts().size() == 2; });
  EXPECT_EQ(Parts()[0], Make("key", "stampit.")) << "the first picture stands as it is";
  ExpectPart(1, Sent("key", 1, 800, 1));
  Picture("delta", 2);
  ExpectPart(2, Sent("delta", 2));
  Sound(400, 's'), Sound(401, 's');
  Picture("delta", 3);
  ExpectPart(3, Sent("delta", 3, 801, 1 + 100000));
}

TEST_F(MxpegView, SoundThatFitsNoBlockWaitsOrIsLeftOut) {
  Picture("key", 1, true);
  Sound(8, 's');
  const Child view = View();
  ExpectPart(1, Sent("key", 1, 8, 1));
  for (int i = 0; i < 4; ++i) Sound(20000, 's');
  Sound(kMaxSoundBytes + 1, 'x');
  Sound(7, 's');
  Picture("delta", 2);
  ExpectPart(2, Sent("delta", 2, 60000, 1001));
  Picture("delta", 3);
  ExpectPart(3, Sent("delta", 3, 20007, 1001 + 7500000));
  EXPECT_TRUE(Logged("CopySamples: Sound of 65522 bytes at once fits behind no picture.\n"));
}

TEST_F(MxpegView, AfterALossItBeginsAnewWithAKeyPicture) {
  Picture("key", 1, true);
  Sound(100, 's');
  const Child view = View();
  ExpectPart(1, Sent("key", 1, 100, 1));
  kill(view.pid(), SIGSTOP);
  for (int i = 0; i < 5000; ++i) Picture("lost", 2);  // those that the ring still holds miss the one before them
  Sound(50, 's');
  g_World.haste = 1000;
  kill(view.pid(), SIGCONT);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  Picture("key", 3, true);
  Picture("delta", 4);
  Until([] { return Parts().size() == 4; });
  EXPECT_EQ(Parts()[2], Sent("key", 3, 50, 3)) << "the sound's time, too";
  ExpectPart(3, Sent("delta", 4));
}

TEST_F(MxpegView, WhatCannotBeShownEndsWithItsText) {
  const auto expect = [this](const std::string& params, const std::string& body, const std::string& line) {
    EXPECT_EQ(Ask("Stream", params), body.empty() ? ">" : ">Content-type: text/plain\r\n\r\n" + body) << line;
    EXPECT_TRUE(Logged(line)) << ReadFile(oculora::kLogPath);
  };
  Picture("delta", 1);
  expect("30&format=mxpeg", "Failed to view camera", "LiveviewMxpegCam: Cam[30]: Failed to get live stream data.\n");
  oculora::RemoveRing({kMxpegCam, 1, RingKind::kAudio});
  expect("30&format=mxpeg", "Failed to view camera", "LiveviewMxpegCam: Cam[30]: Failed to attach live stream buf.\n");
  oculora::RemoveRing({kMxpegCam, 1, RingKind::kVideo});
  expect("30&format=mxpeg", "Failed to view camera.",
         "LiveviewMxpegCam: Cam[30]: Failed to attach CAM_STM[2] stream buf.\n");
  expect("30&format=mjpeg", "Failed to view camera",
         "LiveviewMpeg4CamByMjpg: Cam[30]: Failed to attach live stream buf\n");
  expect("20&format=mxpeg", "", "OutputMxpegStream: Cam[20]: Wrong m_VideoType[3] in OutputMxpegStream.\n");
}

TEST_F(MxpegView, SilenceEndsItAfterThirtySeconds) {
  const time_t start = g_World.now = time(nullptr);
  Picture("key", 1, true);
  Child view = View();
  Until([] { return Parts().size() == 2; });
  g_World.now = start + 30;
  EXPECT_EQ(view.Wait(200), -1);
  g_World.now = start + 31;
  EXPECT_EQ(view.Wait(20000), 0);
  EXPECT_TRUE(Logged("LiveviewMxpegCam: Cam[30]: get video data from VdoStmFifo more than 30 secs.\n"));
}

}  // namespace
