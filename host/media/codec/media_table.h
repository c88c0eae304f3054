// The table of functions that the media object exports under the name "OculoraMediaTable".
#pragma once

#include <cstdint>
#include <string>

#include "velm/media.h"

namespace oculora {

constexpr std::uint32_t kMediaTableVersion = 2;

// Why an operation failed, where the log has more to say than that it did.
enum MediaResult : std::int32_t {
  kMediaDone = 0,
  kMediaFailed = -1,
  kMediaUnknownType = -2,
  kMediaTooLarge = -3,
};

// What a recorded file says of itself.
struct RecordingInfo {
  double rate = 0;  // frames a second; 0: unknown
  std::int32_t frames = 0;
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
  // A recorded file as JPEGs: those stored as JPEG as they are, others decoded and compressed in their size. `fd` is
  // read at positions of its own; it stays the caller's and open until closeRecording. Null with a sentence in `reason`
  // when the file holds no video that can be shown.
  void* (*openRecording)(int fd, RecordingInfo& info, std::string& reason);
  MediaResult (*readRecording)(void* recording, std::int32_t number, unsigned char* jpeg, int capacity, int& jpegSize);
  void (*closeRecording)(void* recording);
};

}  // namespace oculora
