// The MP3 encoder of the FFmpeg utilities.
extern "C" {
#include <libavcodec/avcodec.h>
}

#include "velm/media.h"

struct EncoderMP3::Impl {
  Impl() {
    // Machines without an MP3 encoder have an encoder object that encodes nothing.
    const AVCodec* encoder = avcodec_find_encoder(AV_CODEC_ID_MP3);
    if (encoder != nullptr) context = avcodec_alloc_context3(encoder);
  }
  ~Impl() { avcodec_free_context(&context); }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  AVCodecContext* context = nullptr;
};

EncoderMP3::EncoderMP3() : m_Impl(std::make_unique<Impl>()) {}
EncoderMP3::~EncoderMP3() = default;
