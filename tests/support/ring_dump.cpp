// Watches a camera's ring as a viewer does and writes what it sees to files, for tests.
//
//   ring_dump CAMERA STREAM frames COUNT DIR [SECONDS]  COUNT frames as DIR/000001, ... and the extra data as
//   DIR/extra;
//                                                       prints "SEQ FLAGS TIMESTAMP SIZE" for each; 1 when too few came
//   ring_dump CAMERA STREAM status                      one JSON object; 1 when there is no ring
#include <sys/shm.h>
#include <unistd.h>
#include <velm/shmstream.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>

#include "shm/ring_writer.h"

namespace {

using Clock = std::chrono::steady_clock;

bool WriteFile(const std::string& path, const unsigned char* data, int size) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(data), size);
  return file.good();
}

bool DumpEntry(const STREAM_ENTRY& entry, const std::string& dir, int number) {
  char name[16];
  std::snprintf(name, sizeof(name), "/%06d", number);
  std::printf("%d %d %lld %d\n", entry.seq, entry.flags, static_cast<long long>(entry.timestamp), entry.size);
  std::fflush(stdout);
  return WriteFile(dir + name, entry.data, entry.size);
}

int DumpFrames(int camId, int streamNo, int count, const std::string& dir, int seconds) {
  LiveStreamUpdater viewer;
  viewer.Init(camId, streamNo);
  viewer.StartLive();
  ShmStreamFifo* ring = LiveStreamFifoAt(camId, streamNo);
  if (ring == nullptr) return 1;
  DATA_ENTRY_INFO cursor{};
  ring->StartRead(cursor);
  const auto end = Clock::now() + std::chrono::seconds(seconds);
  int written = 0;
  int seq = kSeqNone + 1;  // before the first frame of an empty ring
  // What a ring holds from an earlier viewer is not asked for.
  if (const STREAM_ENTRY* old = ring->ReadNext(kSeqNone, cursor)) seq = old->seq;
  while (written < count && Clock::now() < end) {
    viewer.UpdateStamp();
    const STREAM_ENTRY* entry = ring->ReadNext(seq, cursor);
    if (entry == nullptr) {
      usleep(2000);
      continue;
    }
    seq = entry->seq;
    if (!DumpEntry(*entry, dir, written + 1)) break;
    ++written;
    ring->ReadFinish(entry, true, cursor);
  }
  unsigned char extra[oculora::kMaxExtraBytes];
  int extraSize = sizeof(extra);
  ring->GetExtra(extra, extraSize);
  const bool good = WriteFile(dir + "/extra", extra, extraSize);
  ring->StopRead(cursor);
  shmdt(ring);
  return good && written == count ? 0 : 1;
}

int PrintStatus(int camId, int streamNo) {
  oculora::RingStatus status;
  if (!oculora::ReadRingStatus({camId, streamNo, oculora::RingKind::kVideo}, status)) return 1;
  const char* states[] = {"idle", "connecting", "streaming", "failed"};
  // Reasons hold no characters that JSON escapes, except in names of files, which tests choose.
  std::printf("{\"state\":\"%s\",\"reason\":\"%s\",\"newestSeq\":%d,\"framesWritten\":%llu,\"readers\":%d}\n",
              states[static_cast<int>(status.state)], status.reason.c_str(), status.newestSeq,
              static_cast<unsigned long long>(status.framesWritten), status.readers);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 6 && std::strcmp(argv[3], "frames") == 0) {
    const int seconds = argc > 6 ? std::atoi(argv[6]) : 30;
    return DumpFrames(std::atoi(argv[1]), std::atoi(argv[2]), std::atoi(argv[4]), argv[5], seconds);
  }
  if (argc == 4 && std::strcmp(argv[3], "status") == 0) return PrintStatus(std::atoi(argv[1]), std::atoi(argv[2]));
  std::fputs("usage: ring_dump CAMERA STREAM frames COUNT DIR [SECONDS] | ring_dump CAMERA STREAM status\n", stderr);
  return 2;
}
