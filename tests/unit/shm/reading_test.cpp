// Which frame each kind of read gives, and how positions behave.
#include <string>

#include "ring_fixture.h"
#include "shm/sequence.h"

namespace {

class Reading : public RingTest {};

TEST_F(Reading, KeyFrameIsCopiedWhetherNewerOrNotWhenItFits) {
  Make(1 << 20);
  const int key = Write(5000);
  Write(100, 0);
  DATA_ENTRY_INFO info{};
  int seq = 0;
  for (const int capacity : {5000, 5000, 4999}) {
    std::vector<unsigned char> buffer(5000, 0xEE);
    int size = capacity;
    ring->ReadLatestIFrame(seq, buffer.data(), size, info);
    EXPECT_EQ(seq, key);
    EXPECT_EQ(size, capacity == 5000 ? 5000 : 0);
    EXPECT_TRUE(capacity == 5000 ? IsPictureWhole(buffer.data(), 5000) : buffer[0] == 0xEE) << "written all the same";
  }
}

TEST_F(Reading, PositionsGiveTheNewestAndTheOnesInOrderAlsoAfterLoss) {
  const struct {
    std::string frames;     // ten, keys or deltas, of which the last six are left in the ring
    std::size_t resumesAt;  // the one read in order after the loss
    std::size_t key;        // the newest; 0: lost
  } cases[] = {{"KddddddKdd", 7, 7}, {"Kddddddddd", 4, 0}, {"KKKKKKKKKK", 4, 9}, {"KdddddddKK", 8, 9}};
  for (const auto& [frames, resumesAt, key] : cases) {
    Make(6 << 10);
    Reader reader(*ring);
    std::vector<int> seqs;
    for (const char frame : frames) seqs.push_back(Write(1024, frame == 'K' ? kKey : 0));
    EXPECT_EQ(reader.Next(kSeqNone), seqs[9]);
    EXPECT_EQ(reader.Next(seqs[0]), seqs[resumesAt]) << frames;
    for (std::size_t i = 4; i < 9; ++i) EXPECT_EQ(reader.Next(seqs[i]), seqs[i + 1]);
    EXPECT_EQ(reader.Next(seqs[9]), 0);
    EXPECT_EQ(reader.Latest(seqs[8]), seqs[9]);
    EXPECT_EQ(reader.Latest(seqs[9]), 0);
    EXPECT_EQ(reader.LatestKey(), key == 0 ? 0 : seqs[key]) << frames;
    EXPECT_EQ(reader.LatestKey(seqs[key]), 0) << frames;
  }
}

TEST_F(Reading, CopierGetsEverythingFromTheFirstCallOn) {
  Make(1 << 20);
  Copier early;
  EXPECT_EQ(early.Next(*ring), 0);  // joins the empty ring
  const int first = Write(3000);
  Copier late;
  EXPECT_EQ(late.Next(*ring), 0);  // joins behind the first frame
  const int second = Write(70000, 0);
  const int third = Write(10, 0);
  EXPECT_EQ(early.Next(*ring), first);
  EXPECT_TRUE(early.flags == kKey && early.timestamp == 1 && early.media.videoType == videoType);
  for (Copier* copier : {&early, &late}) {
    EXPECT_EQ(copier->Next(*ring), 0) << "over the capacity";
    EXPECT_EQ(copier->cursor, second);
    EXPECT_EQ(copier->Next(*ring), third);
  }
}

TEST_F(Reading, CopierFarBehindMayJump) {
  Make(40 << 10);
  Copier patient;
  Copier hasty;
  EXPECT_EQ(patient.Next(*ring) + hasty.Next(*ring), 0);
  std::vector<int> seqs;
  for (int i = 0; i < 23; ++i) seqs.push_back(Write(1024, i % 5 == 0 ? kKey : 0));
  EXPECT_EQ(hasty.Next(*ring, false), seqs[20]);
  EXPECT_EQ(patient.Next(*ring, true), seqs[0]);
}

TEST_F(Reading, PositionsSurviveTheWrap) {
  Make(64 << 10);
  ring->newest.store(oculora::kSeqCycle - 3);  // as after 1.4 years
  ring->oldest.store(oculora::kSeqCycle - 2);
  Reader reader(*ring);
  Copier copier;
  EXPECT_EQ(copier.Next(*ring), 0);
  std::vector<int> seqs = {kSeqNone};
  for (int i = 0; i < 8; ++i) {
    const int seq = Write(1000);
    EXPECT_GT(seq, oculora::kSeqBeforeFirst);
    EXPECT_EQ(reader.Latest(seqs.back()), seq);
    EXPECT_EQ(reader.Latest(seq), 0);
    EXPECT_EQ(copier.Next(*ring), seq);
    seqs.push_back(seq);
  }
  EXPECT_LT(seqs[8], seqs[1]) << "did not wrap";
  for (std::size_t i = 1; i < 8; ++i) EXPECT_EQ(reader.Next(seqs[i]), seqs[i + 1]);
}

TEST_F(Reading, ExtraDataStaysWithinBounds) {
  Make(1 << 16);
  const std::vector<unsigned char> extra(oculora::kMaxExtraBytes + 1, 0x5A);
  EXPECT_FALSE(writer.SetExtra(extra.data(), extra.size()));
  ASSERT_TRUE(writer.SetExtra(extra.data(), 37));
  std::vector<unsigned char> buffer(2048);
  for (const auto& [capacity, copied] : {std::pair(-1, 0), {30, 30}, {2000, 37}}) {
    int size = capacity;
    ring->GetExtra(buffer.data(), size);
    EXPECT_EQ(size, copied);
    EXPECT_EQ(std::count(buffer.begin(), buffer.end(), 0x5A), copied);
  }
}

}  // namespace
