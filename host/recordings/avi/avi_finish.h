// Completes an AVI that AviWriter wrote.
#pragma once

#include <string>

#include "recordings/recording_file.h"

namespace oculora {

// Cuts off what is behind the last whole picture, appends the index, and writes the true counts and length into the
// header; the rate is that of the last Sync. Everything comes from the file alone, so it serves a file just closed and
// one left by a kill or a power cut. A finished file stays byte for byte. Nobody else may write the file meanwhile.
//
// True: the file is complete and on the disk; `facts` describe it. False with a sentence in `reason`: `facts.worthless`
// tells a file without a single whole picture, to be removed; any other failure leaves a file that can be shown as
// before and finished another time. Waits for the disk, and reads a page a picture.
bool FinishAvi(const std::string& path, RecordingFacts& facts, std::string& reason);

}  // namespace oculora
