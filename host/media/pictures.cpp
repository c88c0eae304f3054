// Loads the media object on first use and calls it.
#include <atomic>

#include "media/media_object.h"
#include "process/object_table.h"
#include "velm/media.h"
#include "webapi/log_line.h"

using oculora::kMediaDone;
using oculora::LoadMedia;
using oculora::MediaTable;

namespace {

constexpr char kLogUnit[] = "media";

}  // namespace

const MediaTable* oculora::LoadMedia() {
  static const MediaTable* const table = static_cast<const MediaTable*>(
      LoadObjectTable({kLogUnit, "media", "oculora-media.so", "OculoraMediaTable", kMediaTableVersion}));
  return table;
}

int DoFFMpegInitVideo(FFmpegAttr& attr, int videoType, const unsigned char* extra, int extraSize) {
  if (LoadMedia() == nullptr) return -1;
  const oculora::MediaResult result = LoadMedia()->openDecoder(attr, videoType, extra, extraSize);
  if (result == oculora::kMediaUnknownType) HOST_LOG_ERROR("There is no decoder for video type %d.\n", videoType);
  return result == kMediaDone ? 0 : -1;
}

int DoFFMpegDecode(FFmpegAttr& attr, const unsigned char* frame, int size) {
  if (LoadMedia() == nullptr) return -1;
  const oculora::MediaResult result = LoadMedia()->decode(attr, frame, size);
  // A camera sends such pictures for as long as it is watched: once a process is enough.
  static std::atomic<bool> told{false};
  if (result == oculora::kMediaTooLarge && !told.exchange(true)) {
    HOST_LOG_ERROR("A picture is larger than 64 megapixels, or has no size; it is not decoded.\n");
  }
  return result == kMediaDone ? 0 : -1;
}

int DoFFMpegScale(FFmpegAttr& attr, unsigned char*& data, int& size, int& width, int& height, int pixelFormat) {
  if (LoadMedia() == nullptr) return -1;
  return LoadMedia()->scale(attr, data, size, width, height, pixelFormat) == kMediaDone ? 0 : -1;
}

void DoFFMpegFree(FFmpegAttr& attr, unsigned char*& data) {
  const bool isEmpty =
      attr.codecContext == nullptr && attr.frame == nullptr && attr.scaler == nullptr && data == nullptr;
  if (!isEmpty && LoadMedia() != nullptr) LoadMedia()->release(attr, data);
  attr = {};
  data = nullptr;
}

int EncodeToJpeg(int width, int height, const unsigned char* rgb, unsigned char* jpeg, int capacity, int& jpegSize,
                 int quality) {
  if (LoadMedia() == nullptr) return -1;
  return LoadMedia()->encodeJpeg(width, height, rgb, jpeg, capacity, jpegSize, quality) == kMediaDone ? 0 : -1;
}
