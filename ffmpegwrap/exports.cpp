// What the segmenter's object offers by plain names.
#include "ffmpeg.h"
#include "ffmpegWrap.h"
#include "velm/media.h"

namespace {

EncoderMP3* gpMp3Obj = nullptr;

void FFMpegLogCallBack(void*, int, const char*, va_list) {}

}  // namespace

#define OCULORA_EXPORT __attribute__((visibility("default")))

// Formats and codecs need no registration since FFmpeg 4.
OCULORA_EXPORT void FFMPG_Init() {
  av_log_set_callback(FFMpegLogCallBack);
  gpMp3Obj = nullptr;
}

OCULORA_EXPORT EncoderMP3* FFMPG_GetEncoderMp3Instance() {
  if (gpMp3Obj == nullptr) gpMp3Obj = new EncoderMP3;
  return gpMp3Obj;
}

OCULORA_EXPORT void FFMPG_FreeEncoderMp3Instance() {
  delete gpMp3Obj;
  gpMp3Obj = nullptr;
}

OCULORA_EXPORT const SegmenterCalls* FFMPG_GetSegmenterCalls() {
  static const SegmenterCalls calls = {kSegmenterVersion, FFMPG_Init, &H264TS::OpenInputFile, &H264TS::OpenOutputFile,
                                       &H264TS::StartTransCode};
  return &calls;
}
