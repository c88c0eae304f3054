// The smallest CGI that copies a slice to its standard output: the yardstick of the slice benchmark.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

int main() {
  static char piece[65536];
  static const char kHead[] = "Content-Type: video/MP2T\r\n\r\n";
  const int file = open(getenv("SMALLEST_SLICE_FILE"), O_RDONLY);
  if (file < 0 || write(STDOUT_FILENO, kHead, sizeof(kHead) - 1) < 0) return 1;
  for (ssize_t size = read(file, piece, sizeof(piece)); size > 0; size = read(file, piece, sizeof(piece))) {
    for (ssize_t done = 0; done < size;) {
      const ssize_t written = write(STDOUT_FILENO, piece + done, static_cast<size_t>(size - done));
      if (written <= 0) return 1;
      done += written;
    }
  }
  return 0;
}
