// Who looks after the recordings of a camera: one process at a time.
#pragma once

#include "front/unique_fd.h"

namespace oculora {

// Held by the process that records a camera, and while its recordings are repaired. The kernel lets go when the process
// ends.
class RecordingLock {
 public:
  // Waits at most `timeoutMs`. False when another process holds it then, or it cannot be had (errno).
  bool Lock(int camId, int timeoutMs);

 private:
  UniqueFd m_Fd;
};

}  // namespace oculora
