// Keeps FFmpeg from printing, and remembers the one thing only its log tells.
#pragma once

namespace oculora {

void QuietFfmpegLog();

// Whether a host name could not be resolved since the last call. The error code alone does not say so.
bool TakeNameLookupFailed();

}  // namespace oculora
