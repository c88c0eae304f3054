// Completes a recorded MP4 file: its index and its length.
#pragma once

#include <string>

#include "recordings/recording_file.h"

namespace oculora {

// Makes the file at `path` whole: cuts what lies behind the last whole fragment, writes the index and the durations.
// Needs nothing but the file, so it serves a file just closed and one left by a crash alike. A finished file is not
// written to. A crash within leaves a file that plays and that can be finished again. `facts` describes the finished
// file.
//
// False with a sentence in `reason`: no recording of Mp4Writer, no whole fragment in it (the file is left as it was),
// or the disk refused. Blocks while the disk writes (fsync); one caller at a time per file.
bool FinishMp4(const std::string& path, RecordingFacts& facts, std::string& reason);

}  // namespace oculora
