// Taking a user's own video file into the recordings.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "records/events.h"

namespace oculora {

struct ImportRequest {
  std::string file;
  EventRecord event;          // camera, type, device type, task, kept
  std::int64_t startUs = -1;  // below 0: it ends now
};

// Checks that the file can be played, copies it with a preview picture beside it, and notes it as an event of a camera
// that exists. The event's id; nothing, with a sentence, when it cannot be played or copied. Whatever was half done
// then is taken back; after a kill the recorder does so.
std::optional<int> ImportEvent(Database& records, const ImportRequest& request, std::string& reason);

}  // namespace oculora
