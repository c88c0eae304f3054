// The recorded file of an event, by byte ranges.
#include <sys/file.h>

#include <cinttypes>
#include <cstdio>
#include <memory>

#include "byte_range.h"
#include "event_unit.h"
#include "streaming.h"
#include "velm/event.h"

namespace {

constexpr std::size_t kChunkBytes = 16384;
char g_Chunk[kChunkBytes];  // one request a process: nothing is allocated

struct FileCloser {
  void operator()(FILE* file) const { fclose(file); }
};

// The answer is partial content always, also when the client asked for no range. On purpose.
void PrintHeader(const Event& event, const ByteRange& range, std::uint64_t size) {
  printf("Status: 206 Partial Content\r\nAccept-Ranges: bytes\r\nContent-Length: %" PRIu64
         "\r\nContent-Range: bytes %" PRIu64 "-%" PRIu64 "/%" PRIu64 "\r\nConnection: close\r\n",
         range.length, range.start, range.end, size);
  std::string path;
  event.GetPath(path);
  const bool isAvi = path.find(".avi") != std::string::npos;
  printf("Content-Type: %s\r\n\r\n", isAvi ? "video/avi" : "video/mp4");
}

// Copies the range to standard output. The lock is held for each read alone, never while a slow client takes its time.
// False when the range's start cannot be reached.
bool StreamEventFile(FILE* file, const ByteRange& range) {
  if (range.start != 0 && fseeko64(file, static_cast<off64_t>(range.start), SEEK_SET) != 0) {
    QM_LOG_ALWAYS(__func__, "Fail to fseeko, DataStart = %d.\n", static_cast<int>(range.start));
    return false;
  }
  const int fd = fileno(file);
  for (std::uint64_t left = range.length; left != 0;) {
    const std::size_t chunk = left >= kChunkBytes ? kChunkBytes : static_cast<std::size_t>(left);
    flock(fd, LOCK_SH);
    const std::size_t count = fread(g_Chunk, 1, chunk, file);
    flock(fd, LOCK_UN);
    if (count < 1) {
      QM_LOG_ALWAYS(__func__, "Error Read(%d) <= 0 \n", static_cast<int>(count));
      break;
    }
    fwrite(g_Chunk, 1, count, stdout);  // a client that has gone ends the process by SIGPIPE
    left -= count;
  }
  return true;
}

}  // namespace

int StreamingHandler::WriteFileStream(const Event& event, int ndId, int camIdOnNd, const std::string& range) {
  const int eventId = event.GetId();
  if (ndId >= 1) return ForwardFileStream(eventId, ndId, camIdOnNd);
  std::string path;
  unsigned long long size = 0;
  if (GetEventFullPathAndSize(event, path, size) != 0) {
    QM_LOG_ALWAYS(__func__, "Failed to get archive recording full path and size[%d].\n", eventId);
    SetErrorCode(kErrNoMedia, "", "");
    return -1;
  }
  const std::unique_ptr<FILE, FileCloser> file(fopen64(path.c_str(), "rbe"));
  if (!file) {
    QM_LOG_ALWAYS(__func__, "Failed to open file: %s\n", path.c_str());
    SetErrorCode(kErrNoMedia, "", "");
    return -1;
  }
  const ByteRange part = ParseByteRange(range, size);
  PrintHeader(event, part, size);
  if (!StreamEventFile(file.get(), part)) {
    // The header is out already; the error follows it.
    QM_LOG_ALWAYS(__func__, "Failed to output Data.\n");
    SetErrorCode(kErrNoMedia, "", "");
    return -1;
  }
  return 0;
}
