// Copying recorded events into an archive.
#include "admin/archive_copy.h"

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "front/unique_fd.h"

namespace oculora {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kPieceBytes = 16 << 20;

// Not the library's copy, which wants to set permissions: disks of other systems know none.
bool CopyBytes(int from, int to) {
  for (;;) {
    const ssize_t count = sendfile(to, from, nullptr, kPieceBytes);
    if (count == 0) return fsync(to) == 0;
    if (count < 0 && errno != EINTR) return false;
  }
}

bool FlushDirectory(const fs::path& path) {
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return fd.IsValid() && fsync(fd.Get()) == 0;
}

// A new directory is only safe once the one above it is; so each level up to the archive's own.
bool FlushDirectories(const std::string& storage, const std::string& path) {
  const fs::path top = RecordingsDirIn(storage);
  for (fs::path level = (top / path).parent_path(); level != top; level = level.parent_path()) {
    if (!FlushDirectory(level)) return false;
  }
  return FlushDirectory(top) && FlushDirectory(storage);
}

// The whole file under its name, or nothing under that name. Sets errno on failure.
bool CopyFile(const std::string& from, const std::string& to) {
  const UniqueFd source(open(from.c_str(), O_RDONLY | O_CLOEXEC));
  if (!source.IsValid()) return false;
  const std::string fresh = to + ".new";
  const UniqueFd target(open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!target.IsValid()) return false;
  if (CopyBytes(source.Get(), target.Get()) && rename(fresh.c_str(), to.c_str()) == 0) return true;
  const int code = errno;
  unlink(fresh.c_str());
  errno = code;
  return false;
}

std::string Named(int id) { return "event " + std::to_string(id); }

std::optional<EventRecord> LoadReady(Database& records, int id, std::string& reason) {
  std::optional<EventRecord> event = EventTable(records).Load(id);
  if (event && event->state == EventState::kReady) return event;
  if (event) {
    reason = Named(id) + " is not ready; only whole recordings are archived";
  } else {
    reason = records.IsUnreadable() ? records.LastError() : "there is no " + Named(id) + "; see \"oculora event list\"";
  }
  return std::nullopt;
}

}  // namespace

bool MakeArchive(const std::string& directory, std::string& reason) {
  if (CreateDirP(RecordingsDirIn(directory), "", false) != 0) {
    reason = RecordingsDirIn(directory) + " cannot be made: " + std::strerror(errno);
    return false;
  }
  return Database::Open(Database::Mode::kCreate, &reason, RecordsPathIn(directory).c_str()).has_value();
}

ArchiveWriter::ArchiveWriter(std::string directory, std::unique_ptr<QmFlock> lock, Database records)
    : m_Directory(std::move(directory)), m_Lock(std::move(lock)), m_Records(std::move(records)) {}

std::unique_ptr<ArchiveWriter> ArchiveWriter::Open(const std::string& directory, std::string& reason) {
  // Archives are made when they are added: records that are missing now mean a disk that is not there.
  if (access(RecordsPathIn(directory).c_str(), F_OK) != 0) {
    reason = RecordsPathIn(directory) + " is missing; is the disk connected?";
    return nullptr;
  }
  auto lock = std::make_unique<QmFlock>(directory + "/archive.lock");
  if (lock->LockEx(0) != 0) {
    reason = errno == EWOULDBLOCK ? "another program writes to the archive " + directory + "; try again"
                                  : directory + "/archive.lock cannot be locked: " + std::strerror(errno);
    return nullptr;
  }
  auto records = Database::Open(Database::Mode::kReadWrite, &reason, RecordsPathIn(directory).c_str());
  if (!records) return nullptr;
  return std::unique_ptr<ArchiveWriter>(new ArchiveWriter(directory, std::move(lock), std::move(*records)));
}

bool ArchiveWriter::CopyFiles(const std::string& path, std::string& reason) const {
  const std::string from = std::string(kRecordingsDir) + "/", to = RecordingsDirIn(m_Directory) + "/";
  bool copied = CreateDirP(fs::path(to + path).parent_path(), "", false) == 0 && CopyFile(from + path, to + path);
  // Not every event has a preview picture.
  copied = copied && (CopyFile(from + ThumbnailPath(path), to + ThumbnailPath(path)) || errno == ENOENT);
  if (copied && FlushDirectories(m_Directory, path)) return true;
  reason = from + path + " cannot be copied to " + m_Directory + ": " + std::strerror(errno);
  return false;
}

bool ArchiveWriter::CopyCamera(Database& records, int camId, std::string& reason) {
  if (m_Records.LoadCamera(camId)) return true;
  std::optional<CameraRecord> camera = records.LoadCamera(camId);
  if (!camera) {
    reason = records.IsUnreadable() ? records.LastError() : "there is no camera " + std::to_string(camId);
    return false;
  }
  camera->source.clear();  // may hold a password
  if (m_Records.AddCamera(*camera)) return true;
  camera->name += " (" + std::to_string(camId) + ")";  // a camera that was removed since may have had the name
  if (m_Records.AddCamera(*camera)) return true;
  reason = m_Records.LastError();
  return false;
}

ArchiveResult ArchiveWriter::Compare(const EventRecord& event, const EventRecord& there, std::string& reason) const {
  if (there.camId == event.camId && there.startUs == event.startUs) {
    reason = Named(event.id) + " is in the archive already";
    return ArchiveResult::kThereAlready;
  }
  reason = "the archive " + m_Directory + " holds another " + Named(event.id) + ", of another site; use a new archive";
  return ArchiveResult::kFailed;
}

ArchiveResult ArchiveWriter::Put(Database& records, int id, std::string& reason) {
  const std::optional<EventRecord> event = LoadReady(records, id, reason);
  if (!event) return ArchiveResult::kFailed;
  EventTable archived(m_Records);
  if (const std::optional<EventRecord> there = archived.Load(id)) return Compare(*event, *there, reason);
  if (!CopyFiles(event->path, reason) || !CopyCamera(records, event->camId, reason)) return ArchiveResult::kFailed;
  if (archived.Add(*event, nullptr)) return ArchiveResult::kCopied;
  reason = m_Records.LastError();
  return ArchiveResult::kFailed;
}

}  // namespace oculora
