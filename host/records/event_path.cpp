// Names of recorded files.
#include <velm/camera.h>

#include <cstdio>
#include <ctime>

#include "records/events.h"
#include "records/storages.h"

namespace oculora {

std::string EventPath(int camId, std::int64_t startUs, int id, const char* extension) {
  const auto seconds = static_cast<time_t>(startUs / 1000000);
  tm utc{};
  gmtime_r(&seconds, &utc);
  char text[96];
  std::snprintf(text, sizeof(text), "%d/%04d-%02d-%02d/%02d-%02d-%02d-%d%s", camId, utc.tm_year + 1900, utc.tm_mon + 1,
                utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, id, extension);
  return text;
}

std::string ThumbnailPath(const std::string& path) {
  const std::size_t dot = path.rfind('.');
  const std::size_t slash = path.rfind('/');
  const bool hasExtension = dot != std::string::npos && (slash == std::string::npos || dot > slash);
  return (hasExtension ? path.substr(0, dot) : path) + ".jpg";
}

const char* RecordingExtension(int videoType) {
  return videoType == VIDEO_TYPE_MJPEG || videoType == VIDEO_TYPE_MXPEG ? ".avi" : ".mp4";
}

std::string RecordsPathIn(const std::string& directory) { return directory + "/records.db"; }
std::string RecordingsDirIn(const std::string& directory) { return directory + "/recordings"; }

}  // namespace oculora
