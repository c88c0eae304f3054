// The smallest CGI that streams one picture from memory, 25 times a second: the yardstick of the live benchmark.
#include <time.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "../support/write_all.h"

namespace {

char gPicture[4194304];

}  // namespace

int main() {
  signal(SIGPIPE, SIG_IGN);
  FILE* file = fopen(getenv("SMALLEST_MJPEG_PICTURE"), "rb");
  if (file == nullptr) return 1;
  const size_t size = fread(gPicture, 1, sizeof(gPicture), file);
  fclose(file);
  static const char kHead[] = "Content-Type: multipart/x-mixed-replace; boundary=b\r\n\r\n--b\r\n";
  if (!WriteAll(kHead, sizeof(kHead) - 1)) return 0;
  timespec next{};
  clock_gettime(CLOCK_MONOTONIC, &next);
  for (;;) {
    char head[128];
    const int length = snprintf(head, sizeof(head), "Content-Type: image/jpeg\r\nContent-Length: %zu\r\n\r\n", size);
    if (!WriteAll(head, static_cast<size_t>(length)) || !WriteAll(gPicture, size) || !WriteAll("\r\n--b\r\n", 7))
      return 0;
    next.tv_nsec += 40000000;
    if (next.tv_nsec >= 1000000000) {
      next.tv_nsec -= 1000000000;
      ++next.tv_sec;
    }
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
  }
}
