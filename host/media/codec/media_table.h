// The table of functions that the media object exports under the name "OculoraMediaTable".
#pragma once

#include <cstdint>

#include "velm/media.h"

namespace oculora {

constexpr std::uint32_t kMediaTableVersion = 1;

// Why an operation failed, where the log has more to say than that it did.
enum MediaResult : std::int32_t {
  kMediaDone = 0,
  kMediaFailed = -1,
  kMediaUnknownType = -2,
  kMediaTooLarge = -3,
};

// The operations of velm/media.h without the logging.
struct MediaTable {
  std::uint32_t version;
  MediaResult (*openDecoder)(FFmpegAttr& attr, int videoType, const unsigned char* extra, int extraSize);
  MediaResult (*decode)(FFmpegAttr& attr, const unsigned char* unit, int size);
  MediaResult (*scale)(FFmpegAttr& attr, unsigned char*& data, int& size, int& width, int& height, int pixelFormat);
  void (*release)(FFmpegAttr& attr, unsigned char*& data);
  MediaResult (*encodeJpeg)(int width, int height, const unsigned char* rgb, unsigned char* jpeg, int capacity,
                            int& jpegSize, int quality);
};

}  // namespace oculora
