// Checks of the machine: programs, shared memory, disk and /tmp, clock, ports.
#pragma once

#include "admin/doctor.h"
#include "records/records.h"

namespace oculora {

void CheckPrograms(Findings& findings);
void CheckSharedMemory(Findings& findings, const std::vector<CameraRecord>& cameras);
void CheckDisk(Findings& findings);
void CheckClock(Findings& findings);
void CheckPort(Findings& findings, int port);

}  // namespace oculora
