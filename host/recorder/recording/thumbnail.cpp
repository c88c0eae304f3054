// The small picture beside a recorded file.
#include "recorder/recording/thumbnail.h"

extern "C" {
#include <libavutil/pixfmt.h>  // the name of a pixel format
}

#include <fcntl.h>
#include <unistd.h>
#include <velm/media.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "front/unique_fd.h"

namespace oculora {
namespace {

constexpr int kWidest = 320;
constexpr int kQuality = 75;

// A decoder and what it gave; released at the end.
struct Decoder {
  Decoder() = default;
  ~Decoder() { DoFFMpegFree(attr, rgb); }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  FFmpegAttr attr{};
  unsigned char* rgb = nullptr;
};

std::vector<unsigned char> MakeThumbnail(int videoType, Bytes picture, Bytes extra) {
  Decoder decoder;
  FFmpegAttr& attr = decoder.attr;
  if (DoFFMpegInitVideo(attr, videoType, extra.data(), static_cast<int>(extra.size())) != 0 ||
      DoFFMpegDecode(attr, picture.data(), static_cast<int>(picture.size())) != 0) {
    return {};
  }
  int width = std::min(attr.width, kWidest);
  int height = std::max(1, static_cast<int>(std::int64_t{attr.height} * width / std::max(attr.width, 1)));
  int rgbSize = 0, size = 0;
  if (DoFFMpegScale(attr, decoder.rgb, rgbSize, width, height, AV_PIX_FMT_RGB24) != 0) return {};
  std::vector<unsigned char> jpeg(static_cast<std::size_t>(rgbSize) + 4096);
  if (EncodeToJpeg(width, height, decoder.rgb, jpeg.data(), static_cast<int>(jpeg.size()), size, kQuality) != 0) {
    return {};
  }
  jpeg.resize(static_cast<std::size_t>(size));
  return jpeg;
}

}  // namespace

bool WriteThumbnail(int videoType, Bytes picture, Bytes extra, const std::string& path) {
  const std::vector<unsigned char> jpeg = MakeThumbnail(videoType, picture, extra);
  if (jpeg.empty()) return false;
  const std::string part = path + kUnfinishedThumbnail;
  const UniqueFd fd(open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!fd.IsValid()) return false;
  const bool written = write(fd.Get(), jpeg.data(), jpeg.size()) == static_cast<ssize_t>(jpeg.size());
  if (written && std::rename(part.c_str(), path.c_str()) == 0) return true;
  unlink(part.c_str());
  return false;
}

}  // namespace oculora
