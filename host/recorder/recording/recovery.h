// Bringing rows and files of recordings together again after a kill, a crash or a power cut.
#pragma once

#include <functional>
#include <string>

#include "records/records.h"

namespace oculora {

// Called with a sentence for each thing that was done, or that could not be.
using RecoveryReport = std::function<void(const std::string& sentence)>;

// Completes what was left half done by processes that are gone:
// - rows being recorded: the file is finished and the row becomes ready; without a whole picture both go;
// - rows being deleted: files and row go;
// - files without a row: one with whole pictures becomes an event, a thumbnail or an empty file goes;
// - ready rows whose file is missing: the row goes (unless nothing at all is there: a disk that is not mounted).
//
// `camId` 0: all cameras of the site. A camera that a living process looks after is left alone. Reads directories, and
// opens no file that a ready row names. Harmless when repeated or interrupted. False when it had to leave something
// undone, which was reported.
bool RecoverRecordings(Database& records, int camId, const RecoveryReport& report);

// The same for one camera whose RecordingLock the caller holds.
bool RecoverCamera(Database& records, int camId, const RecoveryReport& report);

}  // namespace oculora
