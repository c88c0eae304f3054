// The media object's one export.
#include "media/codec/media_table.h"

#include <malloc.h>

#include "media/codec/codec.h"
#include "media/codec/ffmpeg.h"
#include "media/extractor/frame_reader.h"

namespace oculora {
namespace {

void Release(FFmpegAttr& attr, unsigned char*& data) {
  CloseDecoder(attr);
  av_freep(&data);
}

// A view makes a decoder for every picture and releases it. Left to itself the C library gives all its memory back to
// the system each time and faults it in again, a fifth of the whole work at 1080p: this keeps it for the next picture.
void KeepFreedMemory() {
  constexpr int kMostKept = 32 << 20;  // one picture and its decoder up to 4K; beyond what 32-bit systems take
  mallopt(M_MMAP_THRESHOLD, kMostKept);
  mallopt(M_TRIM_THRESHOLD, kMostKept);
}

}  // namespace
}  // namespace oculora

extern "C" __attribute__((visibility("default"))) const oculora::MediaTable* OculoraMediaTable() {
  static const oculora::MediaTable table = {oculora::kMediaTableVersion,
                                            oculora::OpenDecoder,
                                            oculora::Decode,
                                            oculora::Scale,
                                            oculora::Release,
                                            oculora::EncodeJpeg,
                                            oculora::OpenRecording,
                                            oculora::ReadRecordedFrame,
                                            oculora::CloseRecording};
  oculora::KeepFreedMemory();
  oculora::QuietFfmpeg();
  return &table;
}
