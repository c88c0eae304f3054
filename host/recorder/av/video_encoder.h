// An encoder for generated pictures.
#pragma once

#include "recorder/av/ffmpeg.h"

namespace oculora {

class VideoEncoder {
 public:
  // Low delay, one thread, a key frame a second. 0 or an AVERROR.
  int Open(AVCodecID codec, int width, int height, int fps);
  // Compresses one picture; `packet` is replaced. 0 or an AVERROR.
  int Encode(const AVFrame& picture, AVPacket& packet);

  AVPixelFormat PixelFormat() const { return m_Context->pix_fmt; }
  // What a demuxer would say about the stream; valid after Open.
  const AVCodecParameters& Parameters() const { return *m_Parameters; }

 private:
  AvPtr<AVCodecContext> m_Context;
  AvPtr<AVCodecParameters> m_Parameters;
};

}  // namespace oculora
