// The media object's one export.
#include "media/codec/media_table.h"

#include "media/codec/codec.h"
#include "media/codec/ffmpeg.h"

namespace oculora {
namespace {

void Release(FFmpegAttr& attr, unsigned char*& data) {
  CloseDecoder(attr);
  av_freep(&data);
}

}  // namespace
}  // namespace oculora

extern "C" __attribute__((visibility("default"))) const oculora::MediaTable* OculoraMediaTable() {
  static const oculora::MediaTable table = {
      oculora::kMediaTableVersion, oculora::OpenDecoder, oculora::Decode, oculora::Scale, oculora::Release,
      oculora::EncodeJpeg};
  oculora::QuietFfmpeg();
  return &table;
}
