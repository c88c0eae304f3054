// MxPEG as cameras send it, whole, odd and broken: what is found in it, and what of that reaches the rings.
#include <gtest/gtest.h>
#include <sys/shm.h>
#include <velm/camera.h>
#include <velm/shmstream.h>

#include <algorithm>

#include "recorder/frames/mxpeg_frames.h"
#include "recorder/frames/mxpeg_picture.h"
#include "recorder/frames/mxpeg_splitter.h"
#include "support/mxpeg_bytes.h"

namespace oculora {
namespace {

using Kind = MxpegItem::Kind;

constexpr std::size_t kMaxPicture = 9000;

// What the splitter makes of a stream that comes byte by byte: "P" and a picture's size, "S" and the number of samples,
// "L" for one too large, "D" for a damaged one.
std::string Split(const Buffer& stream) {
  MxpegSplitter splitter(kMaxPicture);
  std::string found;
  for (const std::uint8_t byte : stream) {
    splitter.Space()[0] = byte;
    splitter.Added(1);
    for (MxpegItem item = splitter.Next(); item.kind != Kind::kNone; item = splitter.Next()) {
      found += std::string(found.empty() ? "" : " ") + " PSLD"[static_cast<int>(item.kind)];
      if (!item.bytes.empty()) found += std::to_string(item.bytes.size());
    }
  }
  return found;
}

const Buffer kKey = MakePicture(true, 120);     // 180 bytes
const Buffer kDelta = MakePicture(false, 300);  // 334
const Buffer kPart = Text("\r\n--pic\r\nContent-Type: image/jpeg\r\nX-Name: T\xfcr\r\n\r\n");

Buffer Cut(Buffer whole, std::size_t bytes) { return whole.resize(whole.size() - bytes), whole; }

// A picture whose comment says it is `by` bytes longer than it is.
Buffer Lying(Buffer picture, int by) {
  picture[4] = static_cast<std::uint8_t>((18 + by) >> 8);
  picture[5] = static_cast<std::uint8_t>(18 + by);
  return picture;
}

TEST(MxpegSplitter, FindsPicturesAndSoundWhateverStandsBetweenThem) {
  const Buffer empty = Join({kMxpegStart, kMxpegEnd});  // nothing changed
  const std::tuple<const char*, Buffer, const char*> cases[] = {
      {"multipart", Join({kPart, kKey, MakeSound(8), kPart, kDelta, kPart}), "P180 S8 P334"},
      {"padding", Join({{0, 0}, kKey, {0xff, 0xff}, kDelta, {0xff, 0, 0xff, 0xd8, 0}, empty}), "P180 P334 P24"},
      {"cut off", Join({kDelta, Cut(kKey, 1)}), "P334"},
      {"lost ends", Join({kKey, Cut(kDelta, 2), kDelta, Cut(kDelta, 9), MakeSound(5)}), "P180 D P334 D S5"},
      {"no picture", Join({{0xff, 0xd8, 0xff, 0xd9}, kMxpegStart, kMxpegKeyHeader, kMxpegEnd, kDelta}), "D D P334"},
      {"long comment", Join({Lying(kKey, 90), kDelta, Lying(kKey, 1000), kDelta, Buffer(2000)}), "D P334 D P334"},
      {"short comment", Join({Lying(kKey, -2), kDelta, Lying(kKey, -18), kDelta}), "D P334 D P334"},
      {"too large", Join({MakePicture(true, 9000), kDelta, kKey}), "L P334 P180"},
      {"too large, cut", Join({Cut(MakePicture(true, 20000), 2), kKey}), "L D P180"},
      {"nothing but fill bytes", Join({kMxpegStart, Buffer(300000, 0xff), {0xd9}, kKey}), "L P180"},
      {"silly sound", Join({MakeSound(9, 0), kKey, MakeSound(9, -14), MakeSound(9, 65000), kDelta}), "P180 P334"},
      {"long sound", Join({kKey, MakeSound(9, 90), kDelta, kDelta}), "P180 S90 D P334"},
      {"all lie", Join({Join(std::vector<Buffer>(5, Lying(kKey, 3))), empty}), "D D D D D P24"},
  };
  for (const auto& [name, stream, expected] : cases) EXPECT_EQ(Split(stream), expected) << name;
}

// The rings of a camera, its video ring so small that it holds one large picture.
class MxpegFramesTest : public testing::Test {
 protected:
  static constexpr RingId kVideo{7, 0, RingKind::kVideo}, kAudio{7, 0, RingKind::kAudio};

  void SetUp() override {
    for (const RingId& id : {kVideo, kAudio}) ASSERT_TRUE(RingWriter::Create(id, 65536, true).IsValid());
    CameraRecord camera;
    camera.id = 7;
    camera.videoType = VIDEO_TYPE_MXPEG;
    ASSERT_TRUE(m_Rings.Attach(camera));
    std::string reason;
    ASSERT_TRUE(m_Frames.Start({}, {1, 1000000}, m_Rings, reason)) << reason;
  }
  void TearDown() override {
    for (const RingId& id : {kVideo, kAudio}) RemoveRing(id);
  }

  FrameResult Write(int kind, Buffer bytes = {}) {
    AvPtr<AVPacket> packet(av_packet_alloc());
    packet->stream_index = kind;
    packet->data = bytes.data();
    packet->size = static_cast<int>(bytes.size());
    return m_Frames.Write(*packet, ++m_Clock, m_Rings);
  }

  // What became of a key picture, a delta, sound, a loss or a picture too large: written, skipped, too large, sound.
  std::string Play(const char* script) {
    std::string results;
    for (const char what : std::string(script)) {
      const FrameResult result = what == 'k'   ? Write(kMxpegPicture, kKey)
                                 : what == 'd' ? Write(kMxpegPicture, kDelta)
                                 : what == 's' ? Write(kMxpegSound, {1, 2, 3})
                                               : Write(what == 'L' ? kMxpegTooLarge : kMxpegLost);
      results += "w.Ls"[static_cast<int>(result)];
    }
    return results;
  }

  CameraRings m_Rings;
  MxpegFrames m_Frames;
  std::int64_t m_Clock = 0;
};

// What a ring holds now, each entry as its flag, video type, time and bytes.
std::vector<std::tuple<int, int, long long, Buffer>> Entries(ShmStreamFifo* fifo) {
  std::vector<std::tuple<int, int, long long, Buffer>> entries;
  Buffer buffer(65536);
  for (int seq = kSeqNone + 1;;) {
    unsigned char* data = buffer.data();
    int size = static_cast<int>(buffer.size());
    int flags = 0;
    long long timestamp = 0;
    MediaES media{};
    fifo->ReadNext(seq, data, size, timestamp, media, flags, true);
    if (size == 0) break;
    entries.emplace_back(flags, media.videoType, timestamp, Buffer(data, data + size));
  }
  shmdt(fifo);
  return entries;
}

TEST_F(MxpegFramesTest, WritesNoPictureWithoutTheOneItNeeds) {
  EXPECT_EQ(Play("dsdkdxdskdLdkd"), ".s.ww..swwL.ww");
  const auto pictures = Entries(LiveStreamFifoAt(7, 0));
  ASSERT_EQ(pictures.size(), 6U);
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    const auto& [flags, type, timestamp, bytes] = pictures[i];
    EXPECT_EQ(std::tuple(flags, type), std::tuple(i % 2 == 0 ? FRAME_FLAG_KEY : 0, int{VIDEO_TYPE_MXPEG}));
    // Key pictures got the tables that they lack, and kept their comment.
    const auto picture = ReadMxpegPicture(bytes);
    EXPECT_EQ(std::tuple(picture.key, picture.hasHuffmanTables), std::tuple(i % 2 == 0, i % 2 == 0));
    EXPECT_TRUE(picture.stampUs);
  }
  EXPECT_EQ(std::get<3>(pictures[1]), kDelta);
  EXPECT_EQ(Entries(LiveAdoStreamFifoAt(7, 0)),
            (decltype(pictures){{FRAME_FLAG_KEY, 0, 2, {1, 2, 3}}, {FRAME_FLAG_KEY, 0, 8, {1, 2, 3}}}));
}

}  // namespace
}  // namespace oculora
