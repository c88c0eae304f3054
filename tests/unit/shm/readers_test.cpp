// The reader table: dead readers, a full table, cursors that are not one's own.
#include <csignal>
#include <list>

#include "capture.h"
#include "ring_fixture.h"

namespace {

class Readers : public RingTest {
 protected:
  int Count() const {
    oculora::RingStatus status;
    EXPECT_TRUE(oculora::ReadRingStatus(kId, status));
    return status.readers;
  }
  int Pinned() const {
    int pinned = 0;
    for (const oculora::ReaderSlot& slot : ring->readers) pinned += slot.pin.load() != 0;
    return pinned;
  }
};

TEST_F(Readers, KilledOnesAreFreedWhenTheyAreInTheWay) {
  constexpr std::size_t kFrame = 10240;
  Make(4 * kFrame);
  std::list<Child> children;
  for (int i = 0; i < 4; ++i) {
    Write(kFrame);
    children.emplace_back([this] {
      DATA_ENTRY_INFO info{};
      fifo->StartRead(info);
      fifo->ReadLatest(kSeqNone, info);
      for (;;) pause();
    });
    while (Pinned() < i + 1) usleep(1000);
  }
  EXPECT_EQ(Write(kFrame), 0);
  EXPECT_EQ(writer.ReapReaders(), 0) << "they live";
  for (const Child& child : children) kill(child.pid(), SIGKILL);  // zombies until waited for
  for (const Child& child : children) waitid(P_PID, static_cast<id_t>(child.pid()), nullptr, WEXITED | WNOWAIT);
  EXPECT_GT(Write(kFrame), kSeqNone);
  EXPECT_EQ(Count(), 0);
  EXPECT_EQ(Pinned(), 0);
}

TEST_F(Readers, OwnersAreTheirPidsAndStartTimes) {
  Make(1 << 16);
  Write(1000);
  Reader reader(fifo.get());
  ASSERT_NE(reader.Latest(kSeqNone), 0);
  std::atomic<std::uint64_t>& owner = ring->readers[reader.info.slot - 1].owner;
  const std::uint64_t own = owner.load();
  EXPECT_EQ(own >> 32, static_cast<std::uint64_t>(getpid()));
  const std::uint64_t init = std::uint64_t{1} << 32;
  struct Case {
    std::uint64_t owner;
    bool dead;
  };
  for (const Case& c :
       {Case{own, false}, Case{own + 1, true},  // its pid was used before
        Case{init | 0xFFFFFFFF, true}, Case{init, false}, Case{std::uint64_t{0x7FFFFFFF} << 32, true}}) {
    owner.store(c.owner);
    EXPECT_EQ(writer.ReapReaders(), c.dead ? 1 : 0) << std::hex << c.owner;
    EXPECT_EQ(owner.load(), c.dead ? 0 : c.owner);
  }
  owner.store(own);
}

TEST_F(Readers, InheritedCursorLeavesTheOwnersSlotAlone) {
  Make(1 << 16);
  Reader reader(fifo.get());
  Child child([&] { fifo->StopRead(reader.info); });
  EXPECT_EQ(child.Wait(5000), 0);
  EXPECT_EQ(Count(), 1);
}

TEST_F(Readers, FullTableFallsBackToCopies) {
  Make(1 << 16);
  std::list<Reader> table;
  for (std::uint32_t i = 0; i < oculora::kReaderSlots; ++i) table.emplace_back(fifo.get());
  Reader copier(fifo.get());
  EXPECT_EQ(copier.info.slot, 0);
  ASSERT_NE(copier.info.copy, nullptr);
  EXPECT_EQ(Count(), static_cast<int>(oculora::kReaderSlots));
  const int seq = Write(20000);
  ASSERT_EQ(copier.Latest(kSeqNone), seq);
  for (int i = 0; i < 20; ++i) ASSERT_GT(Write(20000), seq);
  EXPECT_EQ(Reader::Judge(&copier.info.entry), seq) << "the copy changed under the reader";
  ring->readers[100].owner.store(std::uint64_t{0x7FFFFFFF} << 32 | 1);  // a process that is gone
  Reader lucky(fifo.get());
  EXPECT_EQ(lucky.info.slot, 101);
  fifo->StopRead(lucky.info);
  fifo->StopRead(lucky.info);  // harmless
  EXPECT_EQ(Count(), static_cast<int>(oculora::kReaderSlots) - 1);
}

TEST_F(Readers, CursorThatNeverStartedReadsNothing) {
  Make(1 << 16);
  Write(1000);
  DATA_ENTRY_INFO info{};
  EXPECT_EQ(fifo->ReadLatest(kSeqNone, info), nullptr);
  fifo->ReadFinish(nullptr, true, info);
  fifo->StopRead(info);
  EXPECT_EQ(Pinned(), 0);
}

}  // namespace
