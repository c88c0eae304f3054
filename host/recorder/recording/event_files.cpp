// The files of events on the site's own storage, and completing or removing them together with their rows.
#include "recorder/recording/event_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "front/unique_fd.h"
#include "recorder/recording/file_writer.h"

namespace oculora {
namespace {

// "3/2026-11-21/15-42-10-57.mp4" without its last part; empty when there is only one.
std::string ParentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

bool FlushDirectory(const std::string& directory) {
  const UniqueFd fd(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return fd.IsValid() && fsync(fd.Get()) == 0;
}

// A new directory's name stands in the one above, which has to reach the disk as well.
bool MakeDirectory(const std::string& directory, const std::string& above) {
  if (mkdir(directory.c_str(), 0700) == 0) return FlushDirectory(above);
  return errno == EEXIST;
}

bool RemoveFile(const std::string& path, std::string& reason) {
  if (unlink(path.c_str()) == 0 || errno == ENOENT || errno == ENOTDIR) return true;
  reason = path + " cannot be removed: " + std::strerror(errno);
  return false;
}

bool IsMissing(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

// Whether the row says no more that the event is being recorded: deleted meanwhile, or completed by somebody else.
bool WasChanged(Database& records, const EventRecord& event) {
  const auto row = EventTable(records).Load(event.id);
  if (records.IsUnreadable() || (row && row->state == EventState::kRecording)) return false;
  std::string ignored;
  if (!row) RemoveEventFiles(event.path, ignored);
  return true;
}

Completed Discard(Database& records, const EventRecord& event, const std::string* failure, std::string& reason) {
  std::string trouble;
  if (!RemoveEventFiles(event.path, trouble)) {
    reason = trouble;
    return Completed::kNotNow;
  }
  EventTable table(records);
  const bool keep = failure != nullptr && event.cause == EventCause::kRequest;
  if (keep && !failure->empty()) reason = *failure;
  if (keep ? table.Fail(event.id, reason) : table.Remove(event.id)) return Completed::kRemoved;
  if (WasChanged(records, event)) return Completed::kNotOurs;
  reason = records.LastError();
  return Completed::kNotNow;
}

}  // namespace

std::string FullPath(const std::string& path) { return std::string(kRecordingsDir) + "/" + path; }

bool MakeDirectoriesFor(const std::string& path) {
  const std::string day = ParentOf(path), camera = ParentOf(day);
  return MakeDirectory(kRecordingsDir, kVarDir) && MakeDirectory(FullPath(camera), kRecordingsDir) &&
         MakeDirectory(FullPath(day), FullPath(camera));
}

bool RemoveEventFiles(const std::string& path, std::string& reason) {
  if (path.empty()) return true;
  if (!RemoveFile(FullPath(path), reason) || !RemoveFile(FullPath(ThumbnailPath(path)), reason)) return false;
  for (std::string directory = ParentOf(path); !directory.empty(); directory = ParentOf(directory)) {
    if (rmdir(FullPath(directory).c_str()) != 0) break;
  }
  return true;
}

bool DeleteEvent(Database& records, const EventRecord& event, std::string& reason) {
  if (!RemoveEventFiles(event.path, reason)) return false;
  if (EventTable(records).Remove(event.id)) return true;
  reason = records.LastError();
  return false;
}

Completed CompleteEvent(Database& records, const EventRecord& event, const std::string* failure, RecordingFacts& facts,
                        std::string& reason) {
  const std::string path = FullPath(event.path);
  if (event.path.empty() || IsMissing(path)) {
    reason = "its file is missing";
    return Discard(records, event, failure, reason);
  }
  if (!FinishFile(path, facts, reason)) {
    return facts.worthless ? Discard(records, event, failure, reason) : Completed::kNotNow;
  }
  if (EventTable(records).Finish(event.id, facts)) return Completed::kReady;
  if (WasChanged(records, event)) return Completed::kNotOurs;
  reason = records.LastError();
  return Completed::kNotNow;
}

}  // namespace oculora
