// Writes gathered buffers to standard output, whole.
#pragma once

#include <sys/uio.h>

namespace oculora {

// Writes all of `parts` (changed in passing) to descriptor 1, behind what stdio still holds. Blocks while the reader
// is slow. A signal does not cut the output as long as the reader takes bytes; one that has stalled gets a second more,
// so that a process told to stop never hangs on a client that went quiet. False when the reader has gone or stalled.
bool WriteAll(iovec* parts, int count);

}  // namespace oculora
