// The small picture of an event.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "events/admitting.h"
#include "events/events.h"
#include "events/picture_answer.h"
#include "velm/writers.h"

namespace oculora {
namespace {

// The whole file; empty when there is none.
std::string ReadSmallFile(const std::string& path) {
  std::string bytes;
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (fd < 0) return bytes;
  struct stat info {};
  if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size <= static_cast<off_t>(kMostPictureBytes)) {
    bytes.resize(static_cast<std::size_t>(info.st_size));
    if (read(fd, bytes.data(), bytes.size()) != info.st_size) bytes.clear();
  }
  close(fd);
  return bytes;
}

}  // namespace

void AnswerWithPicture(const std::string& picture, const std::string& caching, VELM::APIResponse& response) {
  response.SetEnableOutput(false);
  WriteWithHeader writer("Content-Type: image/jpeg\r\nContent-Length: " + std::to_string(picture.size()) +
                         "\r\nCache-Control: " + caching + "\r\n\r\n");
  if (writer.WriteHeader(nullptr) == 0) writer.WriteResponse(picture.data(), static_cast<int>(picture.size()));
}

void SendThumbnail(VELM::APIRequest* request, VELM::APIResponse* response) {
  if (!Admit(*request, *response, kNeedPlayback)) return;
  const std::optional<EventId> id = EventIdOf(*request, *response);
  if (!id) return;
  if (id->owner) {
    PassThumbnail(*id->owner, id->number, *response);
    return;
  }
  const std::optional<EventRecord> event = LoadEvent(id->number, *response);
  if (!event) return;
  const std::string picture =
      event->path.empty() ? "" : ReadSmallFile(std::string(kRecordingsDir) + "/" + ThumbnailPath(event->path));
  if (picture.empty()) {
    response->SetError(kErrFailed, "event " + std::to_string(event->id) + " has no preview picture");
    return;
  }
  AnswerWithPicture(picture, event->state == EventState::kReady ? "private, max-age=86400" : "no-store", *response);
}

}  // namespace oculora
