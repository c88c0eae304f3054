// Checks of recordings: rows against files, room on the disk, failures.
#pragma once

#include "admin/doctor.h"
#include "records/records.h"

namespace oculora {

void CheckRecordings(Findings& findings, const std::vector<CameraRecord>& cameras);

// oculora doctor --repair: completes what a crash left half done, and says what it did; the exit code. The recorder
// must not run: it does the same by itself when it starts.
int RepairRecordings();

}  // namespace oculora
