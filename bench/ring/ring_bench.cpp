// Frame rings under load: how long a write takes, and how many of the pictures reach the readers.
//
// 25 pictures of 200 KB a second; 1, 10 and 100 reader processes that look for a new picture every 10 ms, as live views
// do, and sum up its bytes. In each round one of them stalls with a picture in its hands (with one reader: beside it).
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velm/shmstream.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "private_site.h"
#include "shm/monotonic.h"
#include "shm/ring_writer.h"

namespace {

using oculora::MonotonicUs;

constexpr oculora::RingId kId{1, 0, oculora::RingKind::kVideo};
constexpr std::size_t kPictureBytes = 200000;
constexpr std::int64_t kFramePeriodUs = 40000;
constexpr int kFrames = 150;  // six seconds a round
constexpr int kMaxReaders = 100;

struct Shared {
  std::atomic<int> ready;
  std::atomic<bool> stop;
  std::atomic<int> received[kMaxReaders];
  std::atomic<std::uint64_t> sum;  // keeps the compiler from dropping the reading
};

std::uint64_t Sum(const unsigned char* data, int size) {
  std::uint64_t sum = 0;
  for (int at = 0; at + 8 <= size; at += 8) {
    std::uint64_t word = 0;
    std::memcpy(&word, data + at, 8);
    sum += word;
  }
  return sum;
}

void Read(Shared& shared, std::atomic<int>& received) {
  ShmStreamFifo* fifo = LiveStreamFifoAt(kId.camId, kId.streamNo);
  if (fifo == nullptr) return;
  DATA_ENTRY_INFO info{};
  fifo->StartRead(info);
  ++shared.ready;
  for (int seq = kSeqNone; !shared.stop;) {
    if (const STREAM_ENTRY* entry = fifo->ReadLatest(seq, info)) {
      shared.sum += Sum(entry->data, entry->size);
      seq = entry->seq;
      ++received;
    }
    fifo->ReadFinish(&info.entry, true, info);
    usleep(10000);
  }
  fifo->StopRead(info);
}

// Holds the first picture it gets until it is killed.
void Stall(Shared& shared) {
  ShmStreamFifo* fifo = LiveStreamFifoAt(kId.camId, kId.streamNo);
  if (fifo == nullptr) return;
  DATA_ENTRY_INFO info{};
  fifo->StartRead(info);
  ++shared.ready;
  while (fifo->ReadLatest(kSeqNone, info) == nullptr) usleep(1000);
  for (;;) pause();
}

template <typename Body>
pid_t Spawn(Body body) {
  std::fflush(stdout);
  const pid_t pid = fork();
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  body();
  _exit(0);
}

void SleepUntil(std::int64_t us) {
  const timespec until{static_cast<time_t>(us / 1000000), static_cast<long>(us % 1000000 * 1000)};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
}

// Writes the round's pictures; how long each write took, sorted.
std::vector<std::int64_t> WritePictures(oculora::RingWriter& writer, int& dropped) {
  std::vector<unsigned char> picture(kPictureBytes, 0x55);
  std::vector<std::int64_t> took;
  std::int64_t next = MonotonicUs();
  for (int i = 0; i < kFrames; ++i) {
    const std::int64_t before = MonotonicUs();
    const int seq = writer.Write(picture.data(), picture.size(), FRAME_FLAG_KEY, before, 1);
    took.push_back(MonotonicUs() - before);
    if (seq <= 0) ++dropped;
    SleepUntil(next += kFramePeriodUs);
  }
  std::sort(took.begin(), took.end());
  return took;
}

bool RunRound(Shared& shared, int readers) {
  oculora::RingWriter writer = oculora::RingWriter::Create(kId, std::size_t{16} << 20, false);
  if (!writer.IsValid()) return false;
  new (&shared) Shared();
  const int moving = std::max(1, readers - 1);
  std::vector<pid_t> children{Spawn([&] { Stall(shared); })};
  for (int i = 0; i < moving; ++i) {
    children.push_back(Spawn([&shared, i] { Read(shared, shared.received[i]); }));
  }
  for (int wait = 0; shared.ready < moving + 1 && wait < 5000; ++wait) usleep(1000);
  int dropped = 0;
  const std::vector<std::int64_t> took = WritePictures(writer, dropped);
  shared.stop = true;
  kill(children.front(), SIGKILL);
  for (const pid_t child : children) waitpid(child, nullptr, 0);

  int total = 0;
  int least = kFrames;
  for (int i = 0; i < moving; ++i) {
    total += shared.received[i];
    least = std::min(least, shared.received[i].load());
  }
  std::printf("%7d %9lld %9lld %9lld %8d %11.2f %11.2f\n", readers, static_cast<long long>(took[kFrames / 2]),
              static_cast<long long>(took[kFrames * 99 / 100]), static_cast<long long>(took.back()), dropped,
              100.0 * total / (moving * kFrames), 100.0 * least / kFrames);
  return oculora::RemoveRing(kId);
}

}  // namespace

int main() {
  if (!EnterPrivateSite()) return 1;
  void* memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return 1;
  std::printf("%zu-byte pictures, 25 a second, one reader stalled\n", kPictureBytes);
  std::printf("%7s %9s %9s %9s %8s %11s %11s\n", "readers", "median us", "p99 us", "max us", "dropped", "delivered %",
              "worst %");
  for (const int readers : {1, 10, kMaxReaders}) {
    if (!RunRound(*static_cast<Shared*>(memory), readers)) {
      perror("ring");
      return 1;
    }
  }
  return 0;
}
