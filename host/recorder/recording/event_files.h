// The files of events on the site's own storage, and completing or removing them together with their rows.
#pragma once

#include <string>

#include "recordings/recording_file.h"
#include "records/events.h"

namespace oculora {

// Where the file stands that a row's path names.
std::string FullPath(const std::string& path);

// Makes the directories for a file below the recordings, known to the disk. False with errno.
bool MakeDirectoriesFor(const std::string& path);

// Removes a file below the recordings, its thumbnail, and directories that are empty then. What is not there counts as
// removed. False with a sentence.
bool RemoveEventFiles(const std::string& path, std::string& reason);

// Removes files and row of an event that is being deleted. False with a sentence: try again.
bool DeleteEvent(Database& records, const EventRecord& event, std::string& reason);

enum class Completed {
  kReady,    // the file is whole, the row says so
  kRemoved,  // nothing worth keeping was in the file, or there was none: it is gone, and the row is or says why
  kNotOurs,  // somebody else has changed the row meanwhile
  kNotNow,   // disk or records refused; `reason` says what
};

// Completes the file of an event that nobody records any more, and then its row. May be repeated after any
// interruption. `failure`: without a picture, the row of a recording that was asked for says that it failed, and why
// (empty: what the file tells), rather than go; null: it goes.
Completed CompleteEvent(Database& records, const EventRecord& event, const std::string* failure, RecordingFacts& facts,
                        std::string& reason);

}  // namespace oculora
