// Which frame each kind of read gives, and how positions behave.
#include <string>

#include "ring_fixture.h"
#include "shm/sequence.h"

namespace {

using oculora::kSeqCycle;

constexpr int kKey = FRAME_FLAG_KEY;

// A copying reader with a buffer of its own.
struct Copier {
  // The sequence number of what was copied; 0: nothing; -1: a damaged picture.
  int Next(ShmStreamFifo& fifo, bool keepOrder = true) {
    unsigned char* data = buffer.data();
    size = static_cast<int>(buffer.size());
    fifo.ReadNext(cursor, data, size, timestamp, media, flags, keepOrder);
    if (size == 0) return 0;
    return IsPictureWhole(buffer.data(), static_cast<std::size_t>(size)) ? cursor : -1;
  }

  std::vector<unsigned char> buffer = std::vector<unsigned char>(65536);
  int cursor = kSeqNone;
  int size = 0;
  long long timestamp = 0;
  MediaES media{};
  int flags = 0;
};

class Reading : public RingTest {};

TEST_F(Reading, LatestGivesEachNewestFrameOnce) {
  Make(1 << 20);
  Reader reader(fifo.get());
  EXPECT_EQ(reader.Latest(kSeqNone), 0);
  EXPECT_EQ(reader.LatestKey(kSeqNone), 0);
  const int key = Write(5000);
  const int delta = Write(999, 0);
  EXPECT_GT(key, kSeqNone);
  EXPECT_EQ(reader.Latest(kSeqNone), delta);
  EXPECT_EQ(reader.info.entry.timestamp, 2);
  EXPECT_EQ(reader.info.entry.flags, 0);
  EXPECT_EQ(reader.Latest(delta), 0);
  EXPECT_EQ(reader.Latest(key), delta);
  EXPECT_EQ(reader.LatestKey(kSeqNone), key);
  EXPECT_EQ(reader.LatestKey(key), 0);
  const unsigned char* data = nullptr;
  int size = 0;
  EXPECT_FALSE(fifo->GetValidFrame(nullptr, data, size));
  EXPECT_TRUE(fifo->GetValidFrame(fifo->ReadLatest(kSeqNone, reader.info), data, size));
  EXPECT_EQ(size, 999);
}

TEST_F(Reading, KeyFrameIsCopiedWhetherNewerOrNot) {
  Make(1 << 20);
  std::vector<unsigned char> buffer(5000);
  DATA_ENTRY_INFO info{};
  int seq = 4711;
  int size = 5000;
  fifo->ReadLatestIFrame(seq, buffer.data(), size, info);
  EXPECT_EQ(seq, 4711);
  EXPECT_EQ(size, 0);
  const int key = Write(5000);
  Write(100, 0);
  for (const int capacity : {5000, 5000, 4999, 0, -1}) {
    buffer.assign(5000, 0xEE);
    size = capacity;
    fifo->ReadLatestIFrame(seq, buffer.data(), size, info);
    EXPECT_EQ(seq, key);
    EXPECT_EQ(size, capacity == 5000 ? 5000 : 0);
    EXPECT_EQ(IsPictureWhole(buffer.data(), 5000), capacity == 5000);
    EXPECT_TRUE(capacity == 5000 || buffer[0] == 0xEE) << "written although it does not fit";
  }
}

TEST_F(Reading, NextKeepsOrderAndRecoversFromLoss) {
  struct Case {
    std::string flags;  // of ten frames, K or d
    int resumesAt;      // index of the frame read after the loss; the last six frames are left in the ring
  };
  for (const Case& c : {Case{"KddddddKdd", 7}, Case{"Kddddddddd", 4}, Case{"KKKKKKKKKK", 4}, Case{"KdddddddKK", 8}}) {
    Make(6 * kKiB);
    Reader reader(fifo.get());
    std::vector<int> seqs;
    for (const char flag : c.flags) seqs.push_back(Write(1024, flag == 'K' ? kKey : 0));
    EXPECT_EQ(reader.Next(kSeqNone), seqs[9]);
    EXPECT_EQ(reader.Next(seqs[0]), seqs[static_cast<std::size_t>(c.resumesAt)]) << c.flags;
    for (std::size_t i = 4; i < 9; ++i) EXPECT_EQ(reader.Next(seqs[i]), seqs[i + 1]);
    EXPECT_EQ(reader.Next(seqs[9]), 0);
  }
}

TEST_F(Reading, CopierGetsEverythingFromTheFirstCallOn) {
  Make(1 << 20);
  Copier early;
  EXPECT_EQ(early.Next(*fifo), 0);  // joins the empty ring
  const int first = Write(3000, kKey);
  Copier late;
  EXPECT_EQ(late.Next(*fifo), 0);  // joins behind the first frame
  const int second = Write(70000, 0);
  const int third = Write(10, 0);
  EXPECT_EQ(early.Next(*fifo), first);
  EXPECT_EQ(early.flags, kKey);
  EXPECT_EQ(early.timestamp, 1);
  EXPECT_EQ(early.media.videoType, 3);
  for (Copier* copier : {&early, &late}) {
    EXPECT_EQ(copier->Next(*fifo), 0) << "over the capacity";
    EXPECT_EQ(copier->cursor, second);
    EXPECT_EQ(copier->Next(*fifo), third);
    EXPECT_EQ(copier->Next(*fifo), 0);
  }
}

TEST_F(Reading, CopierFarBehindMayJump) {
  Make(40 * kKiB);
  Copier patient;
  Copier hasty;
  EXPECT_EQ(patient.Next(*fifo) + hasty.Next(*fifo), 0);
  std::vector<int> seqs;
  seqs.reserve(23);
  for (int i = 0; i < 20; ++i) seqs.push_back(Write(1024, i % 5 == 0 ? kKey : 0));
  EXPECT_EQ(hasty.Next(*fifo, false), seqs[0]) << "half a ring behind is not too far";
  for (int i = 20; i < 23; ++i) seqs.push_back(Write(1024, i % 5 == 0 ? kKey : 0));
  EXPECT_EQ(hasty.Next(*fifo, false), seqs[20]);
  EXPECT_EQ(patient.Next(*fifo, true), seqs[0]);
}

TEST_F(Reading, PositionsSurviveTheWrap) {
  Make(64 * kKiB);
  ring->newest.store(kSeqCycle - 3);  // as after 1.4 years
  ring->oldest.store(kSeqCycle - 2);
  Reader reader(fifo.get());
  Copier copier;
  EXPECT_EQ(copier.Next(*fifo), 0);
  std::vector<int> seqs;
  for (int i = 0; i < 8; ++i) {
    seqs.push_back(Write(1000));
    EXPECT_GT(seqs.back(), oculora::kSeqBeforeFirst);
    EXPECT_EQ(reader.Latest(i == 0 ? kSeqNone : seqs[static_cast<std::size_t>(i) - 1]), seqs.back());
    EXPECT_EQ(reader.Latest(seqs.back()), 0);
    EXPECT_EQ(copier.Next(*fifo), seqs.back());
  }
  EXPECT_LT(seqs.back(), seqs.front()) << "did not wrap";
  for (std::size_t i = 0; i + 1 < seqs.size(); ++i) EXPECT_EQ(reader.Next(seqs[i]), seqs[i + 1]);
}

TEST_F(Reading, ExtraDataStaysWithinBounds) {
  Make(1 << 16);
  std::vector<unsigned char> extra(oculora::kMaxExtraBytes + 1, 0x5A);
  EXPECT_FALSE(writer.SetExtra(extra.data(), extra.size()));
  for (const int stored : {0, 1, 37, 1024, 5}) {
    ASSERT_TRUE(writer.SetExtra(extra.data(), static_cast<std::size_t>(stored)));
    for (const int capacity : {-1, 0, 1, 30, 1024, 2000}) {
      std::vector<unsigned char> buffer(2048, 0xEE);
      int size = capacity;
      fifo->GetExtra(buffer.data(), size);
      EXPECT_EQ(size, std::max(0, std::min(stored, capacity)));
      for (int i = 0; i < 2048; ++i) ASSERT_EQ(buffer[static_cast<std::size_t>(i)], i < size ? 0x5A : 0xEE);
    }
  }
}

}  // namespace
