// Asking for a recording of a camera: the checks, and the row that the recorder finds.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "records/records.h"

namespace oculora {

// So many recordings of one camera may be asked for at once; each is a file being written.
constexpr int kMaxRequestsAtOnce = 8;

struct RecordingRefusal {
  int code = 0;  // of the web API
  std::string text;
};

// Asks the running recorder to record `camId` for `seconds` (1 to kMaxRecordSeconds), from `nowUs` on. The id of the
// event; nothing when the camera cannot be recorded, with the reason. `records` is open for writing.
std::optional<int> RequestRecording(Database& records, int camId, int seconds, std::int64_t nowUs,
                                    RecordingRefusal& refusal);

}  // namespace oculora
