// Readers of a ring killed at random moments while a camera's pictures go on.
//
//   READERS=300 SECONDS=120 ring_storm
//
// One writer, 25 pictures of 200 KB a second. The readers take the newest picture, hold it for a while, follow in order
// or copy; about fifty a second are killed and replaced. At the end no pin may be left and the ring must work as new.
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <new>
#include <random>

#include "../../unit/shm/ring_fixture.h"
#include "capture.h"
#include "shm/monotonic.h"

namespace {

using oculora::MonotonicUs;

constexpr std::size_t kPictureBytes = 200000;
constexpr std::int64_t kFramePeriodUs = 40000;

// Shared by all processes.
struct Tally {
  std::atomic<bool> stop;
  std::atomic<std::uint32_t> writes, reads, damaged, unserved;  // the last: readers that could not even start
};

class RingStorm : public RingTest {
 protected:
  static std::unique_ptr<Child> Spawn(const std::function<void()>& body) {
    return std::make_unique<Child>([&] {
      prctl(PR_SET_PDEATHSIG, SIGKILL);  // nothing stays behind when the storm itself is killed
      body();
    });
  }

  void RunWriter() {
    std::vector<std::vector<unsigned char>> film;
    for (std::uint32_t i = 0; i < 8; ++i) film.push_back(MakePicture(kPictureBytes, i));
    for (std::int64_t next = MonotonicUs(); !tally.stop; next += kFramePeriodUs) {
      if (const std::int64_t early = next - MonotonicUs(); early > 0) usleep(static_cast<useconds_t>(early));
      writer.Write(film[tally.writes++ % film.size()].data(), kPictureBytes, kKey, next, 1);
    }
  }

  // A reader of one kind or another: takes pictures where they lie and holds them for a while, newest ones or all in
  // order, or copies them out.
  void RunReader(unsigned kind) {
    const useconds_t holds[] = {0, 0, 3000, 50000, 300000, 2000000, 100, 0};
    Reader reader(*ring);
    Copier copier;
    copier.buffer.resize(kPictureBytes);
    if (reader.info.slot == 0 && reader.info.copy == nullptr) ++tally.unserved;
    for (int last = kSeqNone;;) {
      int seq = kind % 8 == 7 ? copier.Next(*ring, false) : kind % 3 == 0 ? reader.Next(last) : reader.Latest(last);
      if (seq != 0 && kind % 8 != 7) {
        last = reader.info.entry.seq;
        usleep(holds[kind % 8]);
        seq = reader.Held();
        reader.Finish();
      }
      if (seq == 0) usleep(10000);
      if (seq != 0) ++(seq > 0 ? tally.reads : tally.damaged);
    }
  }

  Tally& tally = *new (mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Tally();
};

TEST_F(RingStorm, LeavesNoPinAndARingAsNew) {
  ASSERT_TRUE(getenv("READERS") != nullptr && getenv("SECONDS") != nullptr) << "say how many and how long";
  const unsigned readerCount = std::stoi(getenv("READERS"));
  const std::int64_t seconds = std::stoi(getenv("SECONDS"));
  Make(std::size_t{32} << 20, false);
  const auto writing = Spawn([this] { RunWriter(); });
  std::vector<std::unique_ptr<Child>> readers;
  for (unsigned i = 0; i < readerCount; ++i) readers.push_back(Spawn([this, i] { RunReader(i); }));
  std::mt19937 random(std::random_device{}());
  int kills = 0;
  for (const std::int64_t end = MonotonicUs() + seconds * 1000000; MonotonicUs() < end; ++kills) {
    usleep(static_cast<useconds_t>(random() % 40000));
    auto& victim = readers[random() % readers.size()];
    victim.reset();
    victim = Spawn([this, kind = static_cast<unsigned>(random())] { RunReader(kind); });
  }
  tally.stop = true;
  EXPECT_EQ(writing->Wait(30000), 0) << "the writer hangs";
  readers.clear();
  std::printf("%d readers killed, %u pictures written or dropped, %u read whole, %u damaged\n", kills,
              tally.writes.load(), tally.reads.load(), tally.damaged.load());
  EXPECT_EQ(tally.damaged, 0U);
  EXPECT_EQ(tally.unserved, 0U);
  EXPECT_GT(tally.reads, readerCount) << "the readers read next to nothing";
  EXPECT_EQ(ring->framesWritten + ring->framesDropped, tally.writes) << "a write neither wrote nor dropped";

  writer.ReapReaders();
  for (const oculora::ReaderSlot& slot : ring->readers) EXPECT_EQ(slot.owner + slot.pin, 0U);
  Reader reader(*ring);
  EXPECT_GT(reader.info.slot, 0) << "no place for the next reader";
  for (int i = 0; i < 500; ++i) {
    const int seq = Write(kPictureBytes);
    ASSERT_GT(seq, kSeqNone) << "a picture is lost after the storm";
    ASSERT_EQ(reader.Latest(), seq);
  }
}

}  // namespace
