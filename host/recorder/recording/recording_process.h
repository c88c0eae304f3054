// The process that records one camera.
#pragma once

namespace oculora {

// Entry of `oculora-recorder --record ID`; the exit code. Ends by itself when there is nothing to record, and with
// SIGTERM.
int RunRecording(int camId);

}  // namespace oculora
