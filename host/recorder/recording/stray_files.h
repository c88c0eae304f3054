// The files below a camera's recordings, and what their names say.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace oculora {

// The files in a camera's directories of days, as rows name them: "3/2026-11-21/15-42-10-57.mp4".
std::vector<std::string> ListCameraFiles(int camId);

struct StrayFile {
  enum class Kind {
    kForeign,    // not ours: it is left alone
    kRecording,  // pictures
    kRemains,    // a thumbnail, or part of one
  };
  Kind kind = Kind::kForeign;
  int eventId = 0;
  std::int64_t startUs = 0;  // microseconds since 1970
};

// Takes any path.
StrayFile ReadStrayName(const std::string& path);

}  // namespace oculora
