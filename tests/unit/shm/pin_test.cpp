// Frames that readers hold against a writer that overtakes them.
#include <signal.h>
#include <unistd.h>

#include <sys/mman.h>
#include <algorithm>
#include <list>
#include <map>

#include "capture.h"
#include "ring_fixture.h"

namespace {

// With streams that fill the whole area and with pictures, which go round in a part of it.
class Pins : public RingTest, public testing::WithParamInterface<CAM_VIDEO_TYPE> {
 protected:
  void SetUp() override { videoType = GetParam(); }
  std::uint64_t Dropped() const { return ring->framesDropped.load(); }

  // The index never describes bytes twice: each frame in it ends before the next one begins, within one round.
  void ExpectSoundIndex() const {
    std::map<std::uint64_t, std::uint64_t> frames;  // begin and end of what the entries name
    for (const oculora::RingEntry& entry : ring->entries) {
      if (entry.number != 0) frames[entry.position] = entry.position + entry.size;
    }
    ASSERT_FALSE(frames.empty());
    std::uint64_t end = 0;
    for (const auto& frame : frames) {
      EXPECT_LE(end, frame.first);
      end = frame.second;
    }
    EXPECT_LE(end - frames.begin()->first, ring->dataBytes);
  }
};

TEST_P(Pins, HeldFramesStayWhileTheWriterLaps) {
  Make(3 << 20);
  std::list<Reader> readers;
  std::vector<std::pair<const unsigned char*, std::vector<unsigned char>>> held;
  for (int i = 0; i < 4000; ++i) {
    const std::size_t size = 1000 + static_cast<std::size_t>(i * 7919 % 40000);
    const int seq = Write(size);
    ASSERT_GT(seq, kSeqNone) << "dropped although there is room";
    Reader watcher(fifo.get());
    ASSERT_EQ(watcher.Latest(kSeqNone), seq);
    if (i % 10 == 0) ExpectSoundIndex();
    if (i % 150 != 0 || held.size() == 10) continue;
    ASSERT_EQ(readers.emplace_back(fifo.get()).Latest(kSeqNone), seq);
    const unsigned char* data = readers.back().info.entry.data;
    held.emplace_back(data, std::vector<unsigned char>(data, data + size));
  }
  ASSERT_EQ(held.size(), 10U);
  for (const auto& [data, copy] : held) EXPECT_TRUE(std::equal(copy.begin(), copy.end(), data));
}

TEST_P(Pins, FullRingDropsNewFramesAndKeepsTheNewest) {
  constexpr std::size_t kFrame = 10240;
  Make(8 * kFrame);
  std::list<Reader> readers;
  for (int i = 0; i < 8; ++i) {
    const int seq = Write(kFrame);
    ASSERT_EQ(readers.emplace_back(fifo.get()).Latest(kSeqNone), seq);
  }
  const int newest = readers.back().info.entry.seq;
  for (int i = 0; i < 5; ++i) EXPECT_EQ(Write(kFrame), 0);
  EXPECT_EQ(Dropped(), 5U);
  Reader late(fifo.get());
  EXPECT_EQ(late.Latest(kSeqNone), newest);
  late.Finish();
  for (Reader& reader : readers) {
    EXPECT_EQ(Reader::Judge(&reader.info.entry), reader.info.entry.seq);
  }
  for (auto release : {3, 0, 4}) {  // each in turn is the only room
    Reader& reader = *std::next(readers.begin(), release);
    reader.Finish();
    for (int i = 0; i < 3; ++i) EXPECT_GT(Write(kFrame), newest);
    ASSERT_NE(reader.Latest(kSeqNone), 0);
    EXPECT_EQ(Write(kFrame), 0);
  }
}

TEST_P(Pins, FramesOfAnySizeFitUpToTheWholeRing) {
  Make(oculora::kMaxFrameBytes);
  Reader reader(fifo.get());
  for (const std::size_t size : {std::size_t{8}, oculora::kMaxFrameBytes, oculora::kMaxFrameBytes, std::size_t{64},
                                 oculora::kMaxFrameBytes / 2 + 64, oculora::kMaxFrameBytes / 2 + 64}) {
    const int seq = Write(size);
    EXPECT_GT(seq, kSeqNone) << size;
    EXPECT_EQ(reader.Latest(kSeqNone), seq);
    reader.Finish();
  }
  std::vector<unsigned char> tooLarge(oculora::kMaxFrameBytes + 1);
  EXPECT_EQ(writer.Write(tooLarge.data(), tooLarge.size(), 0, 0, 1), -1);
  EXPECT_EQ(writer.Write(tooLarge.data(), 0, 0, 0, 1), -1);
}

// Reads in every way while another process writes as fast as it can into a ring of two or three frames.
TEST_P(Pins, NoReadEverGivesHalfAPicture) {
  Make(60 * kKiB);
  Child child([this] {
    for (std::uint32_t i = 0;; ++i) {
      Write(8 + i * 7919 % 30000, i % 3 == 0 ? FRAME_FLAG_KEY : 0);
      const std::vector<unsigned char> extra(i % 1000 + 1, static_cast<unsigned char>(i % 1000));
      writer.SetExtra(extra.data(), extra.size());
    }
  });
  Reader reader(fifo.get());
  Reader copier(fifo.get());
  fifo->StopRead(copier.info);
  copier.info.copy = static_cast<unsigned char*>(
      mmap(nullptr, oculora::kMaxFrameBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  copier.info.copyCapacity = static_cast<std::int32_t>(oculora::kMaxFrameBytes);
  std::vector<unsigned char> buffer(oculora::kMaxFrameBytes);
  int reads = 0;
  int cursor = kSeqNone;
  while (reads < 50000) {
    // Behind everything, Next gives the frame that the writer is about to overwrite.
    for (const int seq : {reader.Latest(kSeqNone), reader.LatestKey(kSeqNone), reader.Next(kSeqNone + 1),
                          copier.Latest(kSeqNone), copier.Next(kSeqNone + 1)}) {
      ASSERT_NE(seq, -1);
      reads += seq != 0;
    }
    unsigned char* data = buffer.data();
    int size = static_cast<int>(buffer.size());
    long long timestamp = 0;
    MediaES media{};
    int flags = 0;
    fifo->ReadNext(cursor, data, size, timestamp, media, flags, reads % 2 == 0);
    ASSERT_TRUE(size == 0 || IsPictureWhole(data, static_cast<std::size_t>(size)));
    int seq = 0;
    size = static_cast<int>(buffer.size());
    fifo->ReadLatestIFrame(seq, data, size, reader.info);
    ASSERT_TRUE(size == 0 || IsPictureWhole(data, static_cast<std::size_t>(size)));
    size = 1024;
    fifo->GetExtra(data, size);
    for (int i = 0; i < size; ++i) ASSERT_EQ(data[i], static_cast<unsigned char>(size - 1));
  }
}

TEST_P(Pins, WriterKilledAtAnyMomentLeavesAGoodRing) {
  Make(200 * kKiB);
  Reader reader(fifo.get());
  for (int round = 0; round < 100; ++round) {
    const std::uint64_t before = ring->newest.load();
    {
      Child child([this] {
        for (std::uint32_t i = 0;; ++i) Write(8 + i * 7919 % 50000);
      });
      while (ring->newest.load() < before + 5) usleep(static_cast<useconds_t>(round * 7));
    }
    writer = oculora::RingWriter::Create(kId, 200 * kKiB, true);
    const int left = reader.Latest(kSeqNone);
    ASSERT_NE(left, -1);
    reader.Finish();
    const int seq = Write(3000, 0);
    ASSERT_GT(seq, kSeqNone);
    ASSERT_EQ(reader.Next(kSeqNone), seq);
    ASSERT_NE(reader.LatestKey(kSeqNone), -1);
    ASSERT_TRUE((reader.info.entry.flags & FRAME_FLAG_KEY) != 0 || reader.info.entry.seq == seq);
    reader.Finish();
  }
  EXPECT_EQ(Dropped(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Types, Pins, testing::Values(VIDEO_TYPE_H264, VIDEO_TYPE_MJPEG));

}  // namespace
