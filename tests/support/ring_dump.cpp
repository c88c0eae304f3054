// Watches a camera's ring as a viewer does, for tests and benchmarks.
//   ring_dump CAMERA STREAM frames|sound COUNT DIR [SECONDS]
// Waits for the ring, writes COUNT new frames as DIR/000001, ... and the extra data as DIR/extra, and prints
// "SEQ FLAGS TIMESTAMP SIZE" for each; exit code 1 when too few came.
#include <sys/shm.h>
#include <unistd.h>
#include <velm/shmstream.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

using Clock = std::chrono::steady_clock;

static void WriteFile(const std::string& path, const unsigned char* data, int size) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(data), size);
}

int main(int argc, char** argv) {
  if (argc < 6) return 2;
  const int camId = std::atoi(argv[1]), streamNo = std::atoi(argv[2]), count = std::atoi(argv[4]);
  const std::string dir = argv[5];
  const auto end = Clock::now() + std::chrono::seconds(argc > 6 ? std::atoi(argv[6]) : 30);
  const auto attach = std::string(argv[3]) == "sound" ? LiveAdoStreamFifoAt : LiveStreamFifoAt;
  ShmStreamFifo* ring = nullptr;
  for (; ring == nullptr && Clock::now() < end; usleep(10000)) ring = attach(camId, streamNo);
  if (ring == nullptr) return 1;
  std::vector<unsigned char> buffer(4 << 20);
  unsigned char* data = buffer.data();
  int seq = kSeqNone, size = 0, flags = 0, written = 0;
  long long timestamp = 0;
  const auto read = [&] {
    MediaES media{};
    size = static_cast<int>(buffer.size());
    ring->ReadNext(seq, data, size, timestamp, media, flags, true);
    return size > 0;
  };
  read();  // takes a place in the ring before the camera starts
  LiveStreamUpdater viewer;
  viewer.Init(camId, streamNo);
  viewer.StartLive();
  for (; written < count && Clock::now() < end; viewer.UpdateStamp()) {
    if (!read()) {
      usleep(2000);
      continue;
    }
    char name[16];
    std::snprintf(name, sizeof(name), "/%06d", ++written);
    WriteFile(dir + name, data, size);
    std::printf("%d %d %lld %d\n", seq, flags, timestamp, size);
    std::fflush(stdout);
  }
  ring->GetExtra(data, size = 1024);
  WriteFile(dir + "/extra", data, size);
  shmdt(ring);
  return written == count ? 0 : 1;
}
