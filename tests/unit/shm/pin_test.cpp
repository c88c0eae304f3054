// Frames that readers hold against a writer that overtakes them, and the table of the readers.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <list>

#include "capture.h"
#include "ring_fixture.h"

namespace {

constexpr std::size_t kFrame = 10240;

// With streams that fill the whole area and with pictures, which go round in a part of it.
class Pins : public RingTest, public testing::WithParamInterface<CAM_VIDEO_TYPE> {
 protected:
  void SetUp() override { videoType = GetParam(); }
};

TEST_P(Pins, HeldFramesStayWhileTheWriterLaps) {
  Make(3 << 20);
  std::list<Reader> readers;
  for (int i = 0; i < 4000; ++i) {
    const int seq = Write(1000 + static_cast<std::size_t>(i * 7919 % 40000));
    ASSERT_GT(seq, kSeqNone) << "dropped although there is room";
    ASSERT_EQ(Reader(*ring).Latest(), seq);
    if (i % 150 != 0 || readers.size() == 10) continue;
    ASSERT_EQ(readers.emplace_back(*ring).Latest(), seq);
  }
  for (const Reader& reader : readers) EXPECT_EQ(reader.Held(), reader.info.entry.seq);
}

TEST_P(Pins, FullRingDropsNewFramesAndKeepsTheNewest) {
  Make(8 * kFrame);
  std::list<Reader> readers;
  int newest = 0;
  for (int i = 0; i < 8; ++i) {
    newest = Write(kFrame);
    ASSERT_EQ(readers.emplace_back(*ring).Latest(), newest);
  }
  for (int i = 0; i < 5; ++i) EXPECT_EQ(Write(kFrame), 0);
  EXPECT_EQ(ring->framesDropped, 5U);
  EXPECT_EQ(Reader(*ring).Latest(), newest);
  for (const Reader& reader : readers) EXPECT_EQ(reader.Held(), reader.info.entry.seq);
  for (const int release : {3, 0, 4}) {  // each in turn is the only room
    Reader& reader = *std::next(readers.begin(), release);
    reader.Finish();
    for (int i = 0; i < 3; ++i) EXPECT_GT(Write(kFrame), newest);
    ASSERT_NE(reader.Latest(), 0);
    EXPECT_EQ(Write(kFrame), 0);
  }
}

TEST_P(Pins, FramesOfAnySizeFitUpToTheWholeRing) {
  constexpr std::size_t kMost = oculora::kMaxFrameBytes;
  Make(kMost);
  for (const std::size_t size : {std::size_t{8}, kMost, kMost, std::size_t{64}, kMost / 2 + 64, kMost / 2 + 64}) {
    const int seq = Write(size);
    EXPECT_GT(seq, kSeqNone) << size;
    EXPECT_EQ(Reader(*ring).Latest(), seq);
  }
  EXPECT_EQ(Write(kMost + 1), -1);
  EXPECT_EQ(writer.Write("", 0, 0, 0, 1), -1);
}

// Reads in every way while another process writes as fast as it can into a ring of two or three frames.
TEST_P(Pins, NoReadEverGivesHalfAPicture) {
  Make(4 << 10);
  Child child([this] {
    std::vector<std::vector<unsigned char>> film;
    for (std::uint32_t i = 0; i < 100; ++i) film.push_back(MakePicture(8 + i * 7919 % 2000, i));
    for (std::uint32_t i = 0;; ++i) {
      const std::vector<unsigned char>& shot = film[i % film.size()];
      writer.Write(shot.data(), shot.size(), i % 3 == 0 ? kKey : 0, i, videoType);
      const std::vector<unsigned char> extra(i % 1000 + 1, static_cast<unsigned char>(i % 1000));
      writer.SetExtra(extra.data(), extra.size());
    }
  });
  Reader reader(*ring);
  Reader unseated(*ring);  // gets its frames copied out, as when the table is full
  ring->StopRead(unseated.info);
  unseated.info.copy = static_cast<unsigned char*>(
      mmap(nullptr, oculora::kMaxFrameBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  unseated.info.copyCapacity = static_cast<std::int32_t>(oculora::kMaxFrameBytes);
  Copier copier;
  std::vector<unsigned char> buffer(65536);
  for (int reads = 0; reads < 1000000;) {
    // Behind everything, Next gives the frame that the writer is about to overwrite.
    for (const int seq : {reader.Latest(), reader.LatestKey(), reader.Next(kSeqNone + 1), unseated.Latest(),
                          unseated.Next(kSeqNone + 1), copier.Next(*ring, reads % 2 == 0)}) {
      ASSERT_NE(seq, -1);
      reads += seq != 0;
    }
    int seq = 0;
    int size = static_cast<int>(buffer.size());
    ring->ReadLatestIFrame(seq, buffer.data(), size, reader.info);
    ASSERT_TRUE(size == 0 || IsPictureWhole(buffer.data(), size));
    size = 1024;
    ring->GetExtra(buffer.data(), size);
    ASSERT_EQ(std::count(buffer.begin(), buffer.begin() + size, static_cast<unsigned char>(size - 1)), size);
  }
}

TEST_P(Pins, WriterKilledAtAnyMomentLeavesAGoodRing) {
  Make(200 << 10);
  Reader reader(*ring);
  for (int round = 0; round < 100; ++round) {
    const std::uint64_t before = ring->newest.load();
    {
      Child child([this] {
        for (std::uint32_t i = 0;; ++i) Write(8 + i * 7919 % 50000);
      });
      while (ring->newest.load() < before + 5) usleep(static_cast<useconds_t>(round * 7));
    }
    writer = oculora::RingWriter::Create(kId, 200 << 10, true);
    ASSERT_NE(reader.Latest(), -1);
    reader.Finish();
    const int seq = Write(3000, 0);
    ASSERT_GT(seq, kSeqNone);
    ASSERT_EQ(reader.Next(kSeqNone), seq);
    ASSERT_NE(reader.LatestKey(), -1);
    ASSERT_TRUE((reader.info.entry.flags & kKey) != 0 || reader.info.entry.seq == seq);
    reader.Finish();
  }
  EXPECT_EQ(ring->framesDropped, 0U);
}

INSTANTIATE_TEST_SUITE_P(Types, Pins, testing::Values(VIDEO_TYPE_H264, VIDEO_TYPE_MJPEG));

class Readers : public RingTest {
 protected:
  static bool IsTaken(const oculora::ReaderSlot& slot) { return slot.owner != 0; }
  static bool IsPinning(const oculora::ReaderSlot& slot) { return slot.pin != 0; }
  std::ptrdiff_t Count(bool (*is)(const oculora::ReaderSlot&) = IsTaken) const {
    return std::count_if(std::begin(ring->readers), std::end(ring->readers), is);
  }
};

TEST_F(Readers, KilledOnesAreFreedWhenTheyAreInTheWay) {
  Make(4 * kFrame);
  std::list<Child> children;
  for (int i = 0; i < 4; ++i) {
    Write(kFrame);
    children.emplace_back([this] {
      Reader reader(*ring);
      reader.Latest();
      pause();
    });
    while (Count(IsPinning) < i + 1) usleep(1000);
  }
  EXPECT_EQ(Write(kFrame), 0);
  EXPECT_EQ(writer.ReapReaders(), 0) << "they live";
  for (const Child& child : children) {  // zombies until the end
    kill(child.pid(), SIGKILL);
    waitid(P_PID, static_cast<id_t>(child.pid()), nullptr, WEXITED | WNOWAIT);
  }
  EXPECT_GT(Write(kFrame), kSeqNone);
  EXPECT_EQ(Count() + Count(IsPinning), 0);
}

TEST_F(Readers, OwnersAreTheirPidsAndStartTimes) {
  Make(1 << 16);
  Reader reader(*ring);
  std::atomic<std::uint64_t>& owner = ring->readers[reader.info.slot - 1].owner;
  const std::uint64_t own = owner.load();
  EXPECT_EQ(own >> 32, static_cast<std::uint64_t>(getpid()));
  const std::uint64_t init = std::uint64_t{1} << 32;
  const std::pair<std::uint64_t, bool> cases[] = {
      {own, false}, {own + 1, true}, {init, false}, {init | 0xFFFFFFFF, true}, {0x7FFFFFFF * init, true}};
  for (const auto& [value, isDead] : cases) {
    owner.store(value);
    EXPECT_EQ(writer.ReapReaders(), isDead ? 1 : 0) << std::hex << value;
    EXPECT_EQ(owner.load(), isDead ? 0 : value);
  }
  owner.store(own);
}

TEST_F(Readers, InheritedCursorsTouchNothing) {
  Make(1 << 16);
  Reader reader(*ring);
  Child child([&] { ring->StopRead(reader.info); });
  EXPECT_EQ(child.Wait(5000), 0);
  EXPECT_EQ(Count(), 1);
}

TEST_F(Readers, FullTableFallsBackToCopies) {
  constexpr int kSlots = oculora::kReaderSlots;
  Make(1 << 16);
  std::list<Reader> table;
  for (int i = 0; i < kSlots; ++i) table.emplace_back(*ring);
  Reader copier(*ring);
  EXPECT_EQ(copier.info.slot, 0);
  const int seq = Write(20000);
  ASSERT_EQ(copier.Latest(), seq);
  ring->readers[100].owner.store(std::uint64_t{0x7FFFFFFF} << 32);  // a process that is gone
  Reader lucky(*ring);
  EXPECT_EQ(lucky.info.slot, 101);
}

}  // namespace
