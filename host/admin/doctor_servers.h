// Checks of recording servers, and of this host as one of them.
#pragma once

#include "admin/doctor.h"
#include "records/records.h"

namespace oculora {

// Asks each server; all of them together for some seconds at most. `cameras`: all of this host.
void CheckServers(Findings& findings, const std::vector<CameraRecord>& cameras);

}  // namespace oculora
