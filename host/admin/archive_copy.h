// Copying recorded events into an archive.
#pragma once

#include <memory>
#include <string>

#include "records/events.h"
#include "records/storages.h"
#include "velm/file.h"

namespace oculora {

enum class ArchiveResult { kCopied, kThereAlready, kFailed };

// Makes the records and the directory of recordings of an archive where they are missing. False with a sentence.
bool MakeArchive(const std::string& directory, std::string& reason);

// Writes to one archive; as long as it lives, no other program does.
class ArchiveWriter {
 public:
  // Nothing, with a sentence, when the archive cannot be written, or somebody else writes to it.
  static std::unique_ptr<ArchiveWriter> Open(const std::string& directory, std::string& reason);

  // Copies an event that is ready: file, preview picture, the camera's row without its source, and the event's row,
  // last, so that what the rows name is there whole. After a kill or a power cut, putting it again completes it.
  // `reason` gets a sentence unless it was copied. Blocks on the disks.
  ArchiveResult Put(Database& records, int id, std::string& reason);

 private:
  ArchiveWriter(std::string directory, std::unique_ptr<QmFlock> lock, Database records);
  ArchiveResult Compare(const EventRecord& event, const EventRecord& there, std::string& reason) const;
  bool CopyFiles(const std::string& path, std::string& reason) const;
  bool CopyCamera(Database& records, int camId, std::string& reason);

  std::string m_Directory;
  std::unique_ptr<QmFlock> m_Lock;
  Database m_Records;
};

}  // namespace oculora
