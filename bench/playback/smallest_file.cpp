// The smallest CGI that sends a file as the module does: reads of 16384 bytes, a shared lock around each, one write
// after it. The yardstick of the whole-file benchmark.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "../support/write_all.h"

namespace {

char gChunk[16384];

}  // namespace

int main() {
  const int file = open(getenv("SMALLEST_FILE"), O_RDONLY);
  struct stat info {};
  if (file < 0 || fstat(file, &info) != 0) return 1;
  char head[128];
  const int length = snprintf(head, sizeof(head), "Content-Type: video/mp4\r\nContent-Length: %lld\r\n\r\n",
                              static_cast<long long>(info.st_size));
  if (!WriteAll(head, static_cast<size_t>(length))) return 0;
  for (;;) {
    flock(file, LOCK_SH);
    const ssize_t count = read(file, gChunk, sizeof(gChunk));
    flock(file, LOCK_UN);
    if (count <= 0 || !WriteAll(gChunk, static_cast<size_t>(count))) return 0;
  }
}
