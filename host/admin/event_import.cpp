// Taking a user's own video file into the recordings.
#include "admin/event_import.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "admin/video_check.h"
#include "front/unique_fd.h"
#include "recorder/clock.h"
#include "recorder/recording/disk_room.h"
#include "recorder/recording/event_files.h"
#include "recorder/recording/housekeeping.h"
#include "recorder/recording/thumbnail.h"
#include "recordings/recording_file.h"
#include "velm/camera.h"

namespace oculora {
namespace {

constexpr std::int64_t kMegabyte = 1000000;
constexpr std::int64_t kDayUs = 86400 * std::int64_t{1000000};

// What speaks against copying; empty when nothing does.
std::string Obstacle(Database& records, const EventRecord& event, std::int64_t bytes) {
  const std::int64_t reserveMb = NumberSetting(records, kReserveSetting, kReserveDefault);
  if (const std::string lack = LackOfRoom(reserveMb + bytes / kMegabyte); !lack.empty()) {
    return LackOfRoom(reserveMb).empty() ? "there is not room enough: " + lack : lack;
  }
  const std::int64_t days = NumberSetting(records, kKeepDaysSetting, kKeepDaysDefault);
  const bool old = days > 0 && event.startUs + event.lengthUs < WallClockUs() - days * kDayUs;
  if (!old || event.kept) return {};
  return "recordings that old are deleted after " + std::to_string(days) + " days; --keep spares it";
}

bool Flush(const std::string& path, int flags) {
  const UniqueFd fd(open(path.c_str(), flags | O_CLOEXEC));
  return fd.IsValid() && fsync(fd.Get()) == 0;
}

bool CopyDurably(const std::string& from, const std::string& path, std::string& reason) {
  const std::string to = FullPath(path);
  std::error_code error;
  if (!MakeDirectoriesFor(path)) {
    error.assign(errno, std::generic_category());
  } else if (std::filesystem::copy_file(from, to, error)) {
    // The copy has its source's permissions.
    if (chmod(to.c_str(), 0600) == 0 && Flush(to, O_RDONLY) &&
        Flush(std::filesystem::path(to).parent_path().string(), O_RDONLY | O_DIRECTORY)) {
      return true;
    }
    error.assign(errno, std::generic_category());
  }
  reason = from + " cannot be copied: " + error.message();
  return false;
}

}  // namespace

std::optional<int> ImportEvent(Database& records, const ImportRequest& request, std::string& reason) {
  VideoFacts facts;
  if (!CheckVideo(request.file, facts, reason)) return std::nullopt;
  EventRecord event = request.event;
  event.cause = EventCause::kImport;
  event.state = EventState::kRecording;
  event.videoType = facts.videoType;
  event.lengthUs = facts.lengthUs;
  event.startUs = request.startUs >= 0 ? request.startUs : WallClockUs() - facts.lengthUs;
  if (reason = Obstacle(records, event, facts.bytes); !reason.empty()) return std::nullopt;
  EventTable events(records);
  const std::optional<int> id = events.Add(event, facts.extension.c_str());
  if (!id) {
    reason = records.LastError();
    return std::nullopt;
  }
  const std::string path = EventPath(event.camId, event.startUs, *id, facts.extension.c_str());
  if (CopyDurably(request.file, path, reason)) {
    WriteThumbnail(VIDEO_TYPE_MJPEG, facts.firstPicture, {}, FullPath(ThumbnailPath(path)));
    if (events.Finish(*id, {.bytes = facts.bytes, .frames = facts.frames, .lengthUs = facts.lengthUs})) return id;
    reason = records.LastError();
  }
  // The row last: as long as it is there, somebody finds the file.
  std::string trouble;
  if (!RemoveEventFiles(path, trouble)) {
    reason += "; " + trouble;
  } else if (!events.Remove(*id)) {
    reason += "; " + records.LastError();
  }
  return std::nullopt;
}

}  // namespace oculora
