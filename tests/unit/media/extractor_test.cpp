// Frames of recorded files: each one shows its number in black and white, so that a wrong one is seen.
#include <gtest/gtest.h>
#include <libavutil/pixfmt.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "capture.h"
#include "recorder/recording/mp4_writer.h"
#include "recordings/mp4/mp4_finish.h"
#include "velm/camera.h"
#include "velm/media.h"

using namespace oculora;

namespace {

constexpr int kFrames = 80, kBits = 8;

std::vector<unsigned char> g_Room(1 << 20);

void Ffmpeg(const std::string& arguments) {
  ASSERT_EQ(std::system(("cd /tmp && ffmpeg -nostdin -v error -y " + arguments).c_str()), 0) << arguments;
}

// Bit b of a frame's number is column b: 16 or 235.
void MakeFrames(const std::string& codec, const std::string& file) {
  Ffmpeg(
      "-f lavfi -i \"nullsrc=s=160x64:r=25,geq=lum='if(mod(floor(N/pow(2,floor(X/20))),2),235,16)':cb=128:cr=128\" "
      "-frames:v 80 -c:v " +
      codec + " " + file);
}

std::string Read(JpegExtractor& file, unsigned index, unsigned room = 1 << 20) {
  unsigned size = room;
  return file.ReadFrame(index, g_Room.data(), size) == 0 ? std::string(g_Room.begin(), g_Room.begin() + size) : "";
}

// What the picture shows; -1: nothing that can be read.
int NumberIn(const std::string& jpeg) {
  FFmpegAttr attr{};
  unsigned char* gray = nullptr;
  int size = 0, width = kBits, height = 1, number = -1;
  if (DoFFMpegInitVideo(attr, VIDEO_TYPE_MJPEG, nullptr, 0) == 0 &&
      DoFFMpegDecode(attr, reinterpret_cast<const unsigned char*>(jpeg.data()), static_cast<int>(jpeg.size())) == 0 &&
      attr.width == 160 && attr.height == 64 && DoFFMpegScale(attr, gray, size, width, height, AV_PIX_FMT_GRAY8) == 0) {
    number = 0;
    for (int bit = 0; bit < kBits; ++bit) number |= (gray[bit] > 128 ? 1 : 0) << bit;
  }
  DoFFMpegFree(attr, gray);
  return number;
}

void ExpectAllFrames(const std::string& path, int count, float rate) {
  SCOPED_TRACE(path);
  JpegExtractor file;
  __tag_JPEG_FRAME_INFO info{};
  ASSERT_EQ(file.Init(path), 0);
  ASSERT_EQ(file.GetFrameInfo(info), 0);
  EXPECT_NEAR(info.frameRate, rate, rate / 1000);
  ASSERT_EQ(info.frameCount, count);
  for (int i = 0; i < count; ++i) ASSERT_EQ(NumberIn(Read(file, static_cast<unsigned>(i))), i);
  for (int i = count - 1; i >= 0; --i) ASSERT_EQ(NumberIn(Read(file, static_cast<unsigned>(i))), i) << "backwards";
  for (int i = 0; i < 4 * count; i += 1 + i % 11) {  // over and over, in steps within a group and beyond it
    ASSERT_EQ(NumberIn(Read(file, static_cast<unsigned>(i * 5 % count))), i * 5 % count) << "jumping";
  }
  for (const unsigned behind : {static_cast<unsigned>(count), 0x7fffffffU, 0x80000000U, ~0U}) {
    EXPECT_EQ(Read(file, behind), "");
  }
}

TEST(Extractor, FramesOfAnAviComeByteForByteAndWithoutTheMediaObject) {
  MakeFrames("mjpeg", "a.avi");
  Ffmpeg("-i a.avi -map 0 -c copy -f data a.data");
  JpegExtractor file;
  __tag_JPEG_FRAME_INFO info{};
  ASSERT_EQ(file.Init("/tmp/a.avi"), 0);
  ASSERT_EQ(file.GetFrameInfo(info), 0);
  EXPECT_FLOAT_EQ(info.frameRate, 25);
  std::string all;
  for (int i = 0; i < info.frameCount; ++i) all += Read(file, static_cast<unsigned>(i));
  EXPECT_EQ(all == ReadFile("/tmp/a.data"), true);
  EXPECT_EQ(Read(file, 0, 100), "") << "more than the room";
  EXPECT_EQ(ReadFile("/proc/self/maps").find("oculora-media.so"), std::string::npos);
  ExpectAllFrames("/tmp/a.avi", kFrames, 25);
}

TEST(Extractor, FrameNIsTheNthShownInAnyContainerAndOrder) {
  const std::string h264 = "libx264 -preset veryfast -g 12 -bf ";
  const std::string fragments = " -movflags +frag_keyframe+empty_moov+default_base_moof";
  MakeFrames(h264 + "0", "plain.mp4");
  MakeFrames(h264 + "3", "b.mp4");
  MakeFrames(h264 + "3 -x264-params open-gop=1:b-adapt=0", "open.mp4");
  MakeFrames("mpeg4 -q:v 2 -g 12 -bf 2", "mpeg4.avi");
  MakeFrames("mjpeg", "jpeg.mov");
  for (const char* source : {"b", "open"}) {
    for (const char* target : {".ts", ".mkv", "-index.mp4"}) {
      Ffmpeg("-i " + std::string(source) + ".mp4 -c copy" + fragments + "+global_sidx " + source + target);
      ExpectAllFrames(std::string("/tmp/") + source + target, kFrames, 25);
    }
  }
  for (const char* file : {"plain.mp4", "b.mp4", "open.mp4", "mpeg4.avi", "jpeg.mov"}) {
    ExpectAllFrames(std::string("/tmp/") + file, kFrames, 25);
  }
}

// Frames as a camera sends them, a key frame every 10, at 8 a second.
void Record(const std::string& path) {
  MakeFrames("libx264 -g 10 -bf 0 -x264-params aud=1:scenecut=0", "camera.h264");
  const std::string stream = ReadFile("/tmp/camera.h264"), delimiter("\0\0\0\1\t", 5);
  Mp4Writer writer;
  for (std::size_t at = 0, next = 0, i = 0; at < stream.size(); at = next, ++i) {
    next = std::min(stream.find(delimiter, at + 1), stream.size());
    const Bytes frame(reinterpret_cast<const std::uint8_t*>(stream.data()) + at, next - at);
    std::string reason;
    ASSERT_TRUE(i > 0 || writer.Open(path, VIDEO_TYPE_H264, frame, {}, 600, reason)) << reason;
    ASSERT_EQ(writer.Write(frame, i % 10 == 0, 1'700'000'000'000'000 + i * 125000LL), Mp4Write::kWritten);
  }
}

TEST(Extractor, OurOwnRecordingsPlayFinishedGrowingAndTorn) {
  Record("/tmp/own.mp4");
  ExpectAllFrames("/tmp/own.mp4", kFrames, 8);
  const std::string growing = ReadFile("/tmp/own.mp4");
  WriteFile("/tmp/torn.mp4", growing.substr(0, growing.size() - 20));
  ExpectAllFrames("/tmp/torn.mp4", kFrames - 10, 8);
  RecordingFacts facts;
  std::string reason;
  ASSERT_TRUE(FinishMp4("/tmp/own.mp4", facts, reason)) << reason;
  ExpectAllFrames("/tmp/own.mp4", kFrames, 8);
}

TEST(Extractor, WhatIsNoRecordingIsRefused) {
  MakeFrames("libx264", "plain.ts");
  WriteFile("/tmp/text.mp4", std::string(5000, 'x'));
  WriteFile("/tmp/list.m3u8", "#EXTM3U\n#EXT-X-TARGETDURATION:9\n#EXTINF:9,\n/tmp/plain.ts\n#EXT-X-ENDLIST\n");
  Ffmpeg("-f lavfi -i sine -t 1 sound.mp4");
  ASSERT_EQ(mkfifo("/tmp/pipe.avi", 0600), 0);
  JpegExtractor file;
  for (const char* path :
       {"", "/tmp", "/tmp/none.avi", "/tmp/pipe.avi", "/tmp/text.mp4", "/tmp/list.m3u8", "/tmp/sound.mp4"}) {
    __tag_JPEG_FRAME_INFO info{};
    EXPECT_EQ(file.Init(path), -1) << path;
    EXPECT_EQ(file.GetFrameInfo(info), -1);
    EXPECT_EQ(Read(file, 0), "");
  }
}

}  // namespace
