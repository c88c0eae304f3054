// The small picture of an event.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "events/admitting.h"
#include "events/events.h"
#include "velm/writers.h"

namespace oculora {
namespace {

constexpr std::int64_t kMostBytes = 1 << 20;  // they have some ten thousand

// The whole file; empty when there is none.
std::string ReadSmallFile(const std::string& path) {
  std::string bytes;
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (fd < 0) return bytes;
  struct stat info {};
  if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size <= kMostBytes) {
    bytes.resize(static_cast<std::size_t>(info.st_size));
    if (read(fd, bytes.data(), bytes.size()) != info.st_size) bytes.clear();
  }
  close(fd);
  return bytes;
}

std::string Header(std::size_t size, bool final) {
  return "Content-Type: image/jpeg\r\nContent-Length: " + std::to_string(size) +
         "\r\nCache-Control: " + (final ? "private, max-age=86400" : "no-store") + "\r\n\r\n";
}

}  // namespace

void SendThumbnail(VELM::APIRequest* request, VELM::APIResponse* response) {
  if (!Admit(*request, *response, kNeedPlayback)) return;
  const std::optional<EventRecord> event = EventOf(*request, *response);
  if (!event) return;
  const std::string picture =
      event->path.empty() ? "" : ReadSmallFile(std::string(kRecordingsDir) + "/" + ThumbnailPath(event->path));
  if (picture.empty()) {
    response->SetError(kErrFailed, "event " + std::to_string(event->id) + " has no preview picture");
    return;
  }
  response->SetEnableOutput(false);
  WriteWithHeader writer(Header(picture.size(), event->state == EventState::kReady));
  if (writer.WriteHeader(nullptr) == 0) writer.WriteResponse(picture.data(), static_cast<int>(picture.size()));
}

}  // namespace oculora
