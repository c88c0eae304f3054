// The files below a camera's recordings, and what their names say.
#include "recorder/recording/stray_files.h"

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string_view>

#include "recorder/recording/event_files.h"
#include "recorder/recording/thumbnail.h"

namespace oculora {
namespace {

namespace fs = std::filesystem;

StrayFile::Kind KindOf(std::string_view ending) {
  if (ending == ".avi" || ending == ".mp4") return StrayFile::Kind::kRecording;
  const bool remains = ending == ".jpg" || ending == std::string(".jpg") + kUnfinishedThumbnail;
  return remains ? StrayFile::Kind::kRemains : StrayFile::Kind::kForeign;
}

}  // namespace

std::vector<std::string> ListCameraFiles(int camId) {
  std::vector<std::string> files;
  const std::string camera = std::to_string(camId);
  std::error_code error;
  for (fs::directory_iterator day(FullPath(camera), error), end; !error && day != end; day.increment(error)) {
    if (!day->is_directory(error) || day->is_symlink(error)) continue;
    const std::string directory = camera + "/" + day->path().filename().string();
    std::error_code inner;
    for (fs::directory_iterator file(day->path(), inner); !inner && file != end; file.increment(inner)) {
      if (file->is_regular_file(inner) && !file->is_symlink(inner)) {
        files.push_back(directory + "/" + file->path().filename().string());
      }
    }
  }
  return files;
}

StrayFile ReadStrayName(const std::string& path) {
  int camera = 0, id = 0, length = 0;
  tm utc{};
  const int fields = std::sscanf(path.c_str(), "%9d/%4d-%2d-%2d/%2d-%2d-%2d-%9d%n", &camera, &utc.tm_year, &utc.tm_mon,
                                 &utc.tm_mday, &utc.tm_hour, &utc.tm_min, &utc.tm_sec, &id, &length);
  if (fields != 8 || id <= 0) return {};
  utc.tm_year -= 1900;
  utc.tm_mon -= 1;
  const std::string_view ending = std::string_view(path).substr(static_cast<std::size_t>(length));
  return {KindOf(ending), id, std::int64_t{timegm(&utc)} * 1000000};
}

}  // namespace oculora
