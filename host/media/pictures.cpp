// Loads the media object on first use and calls it.
#include <atomic>

#include "media/codec/media_table.h"
#include "process/object_table.h"
#include "velm/media.h"
#include "webapi/log_line.h"

using oculora::kMediaDone;
using oculora::MediaTable;

namespace {

constexpr char kLogUnit[] = "media";

const MediaTable* Table() {
  static const MediaTable* const table = static_cast<const MediaTable*>(oculora::LoadObjectTable(
      {kLogUnit, "media", "oculora-media.so", "OculoraMediaTable", oculora::kMediaTableVersion}));
  return table;
}

}  // namespace

int DoFFMpegInitVideo(FFmpegAttr& attr, int videoType, const unsigned char* extra, int extraSize) {
  if (Table() == nullptr) return -1;
  const oculora::MediaResult result = Table()->openDecoder(attr, videoType, extra, extraSize);
  if (result == oculora::kMediaUnknownType) HOST_LOG_ERROR("There is no decoder for video type %d.\n", videoType);
  return result == kMediaDone ? 0 : -1;
}

int DoFFMpegDecode(FFmpegAttr& attr, const unsigned char* frame, int size) {
  if (Table() == nullptr) return -1;
  const oculora::MediaResult result = Table()->decode(attr, frame, size);
  // A camera sends such pictures for as long as it is watched: once a process is enough.
  static std::atomic<bool> told{false};
  if (result == oculora::kMediaTooLarge && !told.exchange(true)) {
    HOST_LOG_ERROR("A picture is larger than 64 megapixels, or has no size; it is not decoded.\n");
  }
  return result == kMediaDone ? 0 : -1;
}

int DoFFMpegScale(FFmpegAttr& attr, unsigned char*& data, int& size, int& width, int& height, int pixelFormat) {
  if (Table() == nullptr) return -1;
  return Table()->scale(attr, data, size, width, height, pixelFormat) == kMediaDone ? 0 : -1;
}

void DoFFMpegFree(FFmpegAttr& attr, unsigned char*& data) {
  const bool isEmpty =
      attr.codecContext == nullptr && attr.frame == nullptr && attr.scaler == nullptr && data == nullptr;
  if (!isEmpty && Table() != nullptr) Table()->release(attr, data);
  attr = {};
  data = nullptr;
}

int EncodeToJpeg(int width, int height, const unsigned char* rgb, unsigned char* jpeg, int capacity, int& jpegSize,
                 int quality) {
  if (Table() == nullptr) return -1;
  return Table()->encodeJpeg(width, height, rgb, jpeg, capacity, jpegSize, quality) == kMediaDone ? 0 : -1;
}
