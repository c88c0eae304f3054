// Writes gathered buffers to standard output, whole.
#pragma once

#include <sys/uio.h>

#include "writers/lent_bytes.h"

namespace oculora {

// Writes all of `parts` (changed in passing) to descriptor 1, behind what stdio still holds. Blocks while the reader
// is slow. A signal does not cut the output as long as the reader takes bytes; one that has stalled gets a second more,
// so that a process told to stop never hangs on a client that went quiet. False when the reader has gone or stalled.
bool WriteAll(iovec* parts, int count);

// The same with all of `lent` between `head` and `tail`, from its file as far as standard output is a pipe that takes
// it and the file still holds it, and from memory where not.
bool WriteAround(iovec* head, int count, const LentBytes& lent, const iovec& tail);

}  // namespace oculora
