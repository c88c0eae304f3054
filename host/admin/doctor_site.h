// Checks of the site: directories, records, recorder, cameras.
#pragma once

#include <optional>

#include "admin/doctor.h"
#include "records/records.h"

namespace oculora {

void CheckDirectories(Findings& findings);
// The cameras, or nothing when the records cannot be read.
std::optional<std::vector<CameraRecord>> CheckRecords(Findings& findings);
void CheckCameras(Findings& findings, const std::vector<CameraRecord>& cameras);

}  // namespace oculora
