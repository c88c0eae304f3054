// Multipart answers: one part a picture, each closed by the next part's boundary.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "velm/writers.h"
#include "writers/write_all.h"

namespace {

#define OCULORA_BOUNDARY "oculora-part-5f1c2b"

constexpr char kAnswerHeader[] = "Content-Type: multipart/x-mixed-replace; boundary=" OCULORA_BOUNDARY
                                 "\r\n"
                                 "Cache-Control: no-store\r\n"
                                 "\r\n"
                                 "--" OCULORA_BOUNDARY "\r\n";
constexpr char kPartEnd[] = "\r\n--" OCULORA_BOUNDARY "\r\n";

// A picture that fits the pipe whole costs one wake-up of each side instead of one per 64 KiB. The kernel bounds all
// pipes of a user to 64 MiB and then hands out tiny ones, so a viewer takes no more than this.
constexpr int kPipeBytes = 256 * 1024;

// Beyond, sending from a file is worth the system calls it takes.
constexpr int kLeastLent = 64 * 1024;

iovec Piece(const void* data, std::size_t size) { return {const_cast<void*>(data), size}; }

}  // namespace

MultipartResponse::MultipartResponse() {
  signal(SIGPIPE, SIG_IGN);
  fcntl(STDOUT_FILENO, F_SETPIPE_SZ, kPipeBytes);  // no pipe, or no more allowed: works as well, only slower
}

int MultipartResponse::Write(const char* contentType, const void* data, int size, const char* extraName,
                             const char* extraValue) {
  if (contentType == nullptr || data == nullptr || size < 0) return -1;
  char head[512];
  const bool extra = extraName != nullptr && extraValue != nullptr;
  const int length =
      snprintf(head, sizeof(head), "Content-Type: %s\r\nContent-Length: %d\r\n%s%s%s%s\r\n", contentType, size,
               extra ? extraName : "", extra ? ": " : "", extra ? extraValue : "", extra ? "\r\n" : "");
  if (length < 0 || length >= static_cast<int>(sizeof(head))) return -1;
  iovec parts[] = {Piece(kAnswerHeader, m_Started ? 0 : sizeof(kAnswerHeader) - 1),
                   Piece(head, static_cast<std::size_t>(length)), Piece(data, static_cast<std::size_t>(size)),
                   Piece(kPartEnd, sizeof(kPartEnd) - 1)};
  m_Started = true;
  const auto lent = oculora::Borrow(data, static_cast<std::size_t>(size));
  const bool done =
      lent && size >= kLeastLent ? oculora::WriteAround(parts, 2, *lent, parts[3]) : oculora::WriteAll(parts, 4);
  if (done) return 0;
  raise(SIGTERM);
  return -1;
}
