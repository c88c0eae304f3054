// Readers of a ring killed at random moments while a camera's pictures go on.
//
//   ring_storm READERS SECONDS
//
// One writer, 25 pictures of 200 KB a second. The readers take the newest picture, hold it for a while, follow in order
// or copy; about fifty a second are killed and replaced. At the end no pin may be left and the ring must work as new.
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velm/shmstream.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>
#include <random>
#include <vector>

#include "../../unit/shm/picture.h"
#include "private_site.h"
#include "shm/monotonic.h"
#include "shm/ring_layout.h"
#include "shm/ring_writer.h"
#include "shm/segment.h"

namespace {

using oculora::MonotonicUs;
using oculora::RingWriter;

constexpr oculora::RingId kId{1, 0, oculora::RingKind::kVideo};
constexpr std::size_t kPictureBytes = 200000;
constexpr std::int64_t kFramePeriodUs = 40000;
constexpr std::size_t kMaxSeconds = 3600;

// Shared by all processes.
struct Tally {
  std::atomic<bool> stop;
  std::atomic<std::uint64_t> reads;
  std::atomic<std::uint64_t> damaged;
  std::atomic<std::uint64_t> unserved;  // readers that could not even start
  std::atomic<std::uint32_t> writes;
  std::array<std::int32_t, kMaxSeconds * 26> writeUs;
};
Tally* g_Tally = nullptr;

int g_Failures = 0;

void Check(bool holds, const char* what) {
  if (holds) return;
  std::printf("FAILED: %s\n", what);
  ++g_Failures;
}

pid_t Spawn(const std::function<void()>& body) {
  const pid_t parent = getpid();
  std::fflush(stdout);
  const pid_t pid = fork();
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // nothing stays behind when the storm itself is killed
  if (getppid() == parent) body();
  _exit(0);
}

void SleepUntil(std::int64_t us) {
  const timespec until{static_cast<time_t>(us / 1000000), static_cast<long>(us % 1000000 * 1000)};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
}

void RunWriter() {
  RingWriter writer = RingWriter::Attach(kId);
  std::vector<std::vector<unsigned char>> pictures(8, std::vector<unsigned char>(kPictureBytes));
  for (std::uint32_t i = 0; i < pictures.size(); ++i) FillPicture(pictures[i], i + 1);
  std::int64_t next = MonotonicUs();
  for (std::uint32_t i = 0; !g_Tally->stop && i < g_Tally->writeUs.size(); ++i) {
    const std::int64_t before = MonotonicUs();
    writer.Write(pictures[i % pictures.size()].data(), kPictureBytes, FRAME_FLAG_KEY, before, 1);
    g_Tally->writeUs[i] = static_cast<std::int32_t>(MonotonicUs() - before);
    g_Tally->writes.store(i + 1);
    next += kFramePeriodUs;
    SleepUntil(next);
  }
}

void Count(bool whole) { ++(whole ? g_Tally->reads : g_Tally->damaged); }

// Takes pictures where they lie, holding each for `holdUs`; newest ones, or all in order.
void TakePictures(ShmStreamFifo& fifo, bool inOrder, useconds_t holdUs) {
  DATA_ENTRY_INFO info{};
  if (fifo.StartRead(info) != 0) ++g_Tally->unserved;
  for (int seq = kSeqNone;;) {
    const STREAM_ENTRY* entry = inOrder ? fifo.ReadNext(seq, info) : fifo.ReadLatest(seq, info);
    if (entry != nullptr) {
      seq = entry->seq;
      if (holdUs > 0) usleep(holdUs);
      Count(IsPictureWhole(entry->data, static_cast<std::size_t>(entry->size)));
    }
    fifo.ReadFinish(entry, true, info);
    if (entry == nullptr) usleep(10000);
  }
}

void CopyPictures(ShmStreamFifo& fifo) {
  std::vector<unsigned char> buffer(oculora::kMaxFrameBytes);
  for (int cursor = kSeqNone;;) {
    unsigned char* data = buffer.data();
    int size = static_cast<int>(buffer.size());
    long long timestamp = 0;
    MediaES media{};
    int flags = 0;
    fifo.ReadNext(cursor, data, size, timestamp, media, flags, false);
    if (size > 0) Count(IsPictureWhole(data, static_cast<std::size_t>(size)));
    if (size == 0) usleep(10000);
  }
}

void RunReader(unsigned kind) {
  ShmStreamFifo* fifo = LiveStreamFifoAt(kId.camId, kId.streamNo);
  if (fifo == nullptr) {
    ++g_Tally->unserved;
  } else if (kind % 8 == 0) {
    CopyPictures(*fifo);
  } else {
    const useconds_t holds[] = {0, 0, 3000, 50000, 300000, 2000000, 100};
    TakePictures(*fifo, kind % 3 == 0, holds[kind % 8 - 1]);
  }
}

void EndReader(pid_t pid) {
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

// Kills and replaces readers until the time is over; returns how many were killed.
int Storm(std::vector<pid_t>& readers, int seconds) {
  std::mt19937 random(std::random_device{}());
  int kills = 0;
  for (const std::int64_t end = MonotonicUs() + seconds * std::int64_t{1000000}; MonotonicUs() < end; ++kills) {
    usleep(static_cast<useconds_t>(random() % 40000));
    pid_t& victim = readers[random() % readers.size()];
    EndReader(victim);
    const auto kind = static_cast<unsigned>(random());
    victim = Spawn([kind] { RunReader(kind); });
  }
  return kills;
}

void StopWriter(pid_t writer) {
  g_Tally->stop = true;
  for (int wait = 0; wait < 3000; ++wait) {
    if (waitpid(writer, nullptr, WNOHANG) == writer) return;
    usleep(10000);
  }
  Check(false, "the writer hangs");
  EndReader(writer);
}

void PrintTally(int kills, const oculora::RingStatus& status) {
  const std::uint32_t writes = g_Tally->writes;
  std::sort(g_Tally->writeUs.begin(), g_Tally->writeUs.begin() + writes);
  const auto at = [&](double share) { return g_Tally->writeUs[static_cast<std::size_t>(share * (writes - 1))]; };
  std::printf("%d readers killed, %u pictures written, %llu dropped, %llu read whole, %llu damaged\n", kills, writes,
              static_cast<unsigned long long>(status.framesDropped),
              static_cast<unsigned long long>(g_Tally->reads.load()),
              static_cast<unsigned long long>(g_Tally->damaged.load()));
  std::printf("write: median %d us, p99 %d us, longest %d us\n", at(0.5), at(0.99), at(1));
}

// After the storm: nothing pinned, nobody in the table, every write finds room, a new reader is served.
void CheckRingIsAsNew(RingWriter& writer) {
  writer.ReapReaders();
  oculora::RingStatus before;
  oculora::ReadRingStatus(kId, before);
  Check(before.readers == 0, "a slot of a dead reader is left");
  const oculora::RingMapping ring = oculora::MapRing(kId);
  for (const oculora::ReaderSlot& slot : ring->readers) Check(slot.pin == 0, "a pin of a dead reader is left");
  DATA_ENTRY_INFO info{};
  Check(ring->StartRead(info) == 0 && info.slot > 0, "the next reader finds no place");
  std::vector<unsigned char> picture(kPictureBytes);
  for (std::uint32_t i = 0; i < 500; ++i) {
    FillPicture(picture, 1000 + i);
    const int seq = writer.Write(picture.data(), picture.size(), FRAME_FLAG_KEY, 0, 1);
    const STREAM_ENTRY* entry = ring->ReadLatest(kSeqNone, info);
    Check(seq > 0 && entry != nullptr && entry->seq == seq, "a picture is lost after the storm");
    Check(entry != nullptr && IsPictureWhole(entry->data, kPictureBytes), "a picture is damaged after the storm");
  }
  ring->StopRead(info);
}

}  // namespace

int main(int argc, char** argv) {
  const int readerCount = argc == 3 ? std::atoi(argv[1]) : 0;
  const int seconds = argc == 3 ? std::atoi(argv[2]) : 0;
  if (readerCount < 1 || readerCount > 500 || seconds < 1 || static_cast<std::size_t>(seconds) > kMaxSeconds) {
    std::fprintf(stderr, "Usage: ring_storm READERS(1-500) SECONDS(1-%zu)\n", kMaxSeconds);
    return 2;
  }
  if (!EnterPrivateSite()) return 1;
  void* shared = mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) return 1;
  g_Tally = new (shared) Tally();
  RingWriter writer = RingWriter::Create(kId, std::size_t{32} << 20, false);
  if (!writer.IsValid()) return 1;

  const pid_t writerPid = Spawn(RunWriter);
  std::vector<pid_t> readers;
  readers.reserve(static_cast<std::size_t>(readerCount));
  for (int i = 0; i < readerCount; ++i) {
    readers.push_back(Spawn([i] { RunReader(static_cast<unsigned>(i)); }));
  }
  const int kills = Storm(readers, seconds);
  StopWriter(writerPid);
  for (const pid_t reader : readers) EndReader(reader);

  oculora::RingStatus status;
  oculora::ReadRingStatus(kId, status);
  PrintTally(kills, status);
  Check(status.framesWritten + status.framesDropped == g_Tally->writes, "a write neither wrote nor dropped");
  Check(g_Tally->damaged == 0, "a reader saw a damaged picture");
  Check(g_Tally->unserved == 0, "a reader could not start");
  Check(g_Tally->reads > static_cast<std::uint64_t>(readerCount), "the readers read next to nothing");
  CheckRingIsAsNew(writer);
  oculora::RemoveRing(kId);
  return g_Failures == 0 ? 0 : 1;
}
