// Rings that are continued, replaced, removed, damaged or no rings at all.
#include <cerrno>

#include "ring_fixture.h"

namespace {

using oculora::Ring;
using oculora::RingWriter;

class Segments : public RingTest {
 protected:
  static int ShmId() { return shmget(*oculora::RingKey(kId), 0, 0); }
};

TEST_F(Segments, SameSizeGoesOnAnotherSizeStartsAnew) {
  Make(1 << 16);
  const int first = Write(1000);
  const int shmId = ShmId();
  shmid_ds status{};
  ASSERT_EQ(shmctl(shmId, IPC_STAT, &status), 0);
  EXPECT_EQ(status.shm_perm.mode & 0777, 0600);
  Make(1 << 16);
  EXPECT_EQ(ShmId(), shmId);
  EXPECT_EQ(Write(1000), first + 1);
  const oculora::RingMapping old = std::move(ring);
  RingWriter oldWriter = std::move(writer);
  Make(1 << 17);
  EXPECT_NE(ShmId(), shmId);
  const int seq = Write(1000);
  EXPECT_EQ(Reader(*ring).Latest(), seq);
  EXPECT_EQ(Reader(*old).Latest(), 0) << "the old ring is retired";
  oldWriter = RingWriter();
  EXPECT_TRUE(RingWriter::Attach(kId).IsValid());
  EXPECT_EQ(LiveAdoStreamFifoAt(kId.camId, kId.streamNo), nullptr) << "another kind";
}

TEST_F(Segments, DamagedRingsAreRefusedByReadersAndReplacedByTheWriter) {
  const std::pair<const char*, void (*)(Ring&)> damages[] = {
      {"unfinished", [](Ring& r) { r.magic = 0; }},
      {"version", [](Ring& r) { ++r.version; }},
      {"entries", [](Ring& r) { r.entryCount = 1U << 31; }},
      {"data beyond the end", [](Ring& r) { r.dataBytes = 1 << 30; }},
  };
  for (const auto& [name, damage] : damages) {
    Make(1 << 16);
    Write(1000);
    damage(*ring);
    EXPECT_EQ(Find(), nullptr) << name;
    EXPECT_EQ(errno, EPROTO) << name;
    EXPECT_EQ(GetCamConnStatus(kId.camId), 0) << name;
    const int shmId = ShmId();
    Make(1 << 16);
    EXPECT_NE(ShmId(), shmId) << name;
    EXPECT_GT(Write(1000), kSeqNone) << name;
  }
}

TEST_F(Segments, ForeignSegmentsAreLeftAlone) {
  for (const std::size_t bytes : {std::size_t{16}, std::size_t{4096}, sizeof(Ring) + 65536}) {
    const int shmId = shmget(*oculora::RingKey(kId), bytes, IPC_CREAT | IPC_EXCL | 0600);
    ASSERT_GE(shmId, 0);
    const auto text = static_cast<char*>(shmat(shmId, nullptr, 0));
    strcpy(text, "someone's bytes");
    EXPECT_EQ(Find(), nullptr);
    EXPECT_FALSE(RingWriter::Create(kId, 65536, true).IsValid());
    EXPECT_EQ(errno, EEXIST);
    EXPECT_FALSE(oculora::RemoveRing(kId));
    EXPECT_EQ(ShmId(), shmId);
    EXPECT_STREQ(text, "someone's bytes");
    shmdt(text);
    shmctl(shmId, IPC_RMID, nullptr);
  }
}

}  // namespace
