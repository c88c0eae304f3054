// An encoder for generated pictures.
#include "recorder/av/video_encoder.h"

#include <cerrno>

namespace oculora {

int VideoEncoder::Open(AVCodecID codec, int width, int height, int fps) {
  const AVCodec* encoder = codec == AV_CODEC_ID_H264 ? avcodec_find_encoder_by_name("libx264") : nullptr;
  if (encoder == nullptr) encoder = avcodec_find_encoder(codec);
  if (encoder == nullptr) return AVERROR_ENCODER_NOT_FOUND;
  AvPtr<AVCodecContext> context(avcodec_alloc_context3(encoder));
  AvPtr<AVCodecParameters> parameters(avcodec_parameters_alloc());
  if (!context || !parameters) return AVERROR(ENOMEM);

  context->width = width;
  context->height = height;
  context->pix_fmt = codec == AV_CODEC_ID_MJPEG ? AV_PIX_FMT_YUVJ420P : AV_PIX_FMT_YUV420P;
  context->time_base = {1, fps};
  context->framerate = {fps, 1};
  context->gop_size = fps;
  context->max_b_frames = 0;
  context->thread_count = 1;
  if (codec == AV_CODEC_ID_H264) {
    av_opt_set(context->priv_data, "preset", "ultrafast", 0);
    av_opt_set(context->priv_data, "tune", "zerolatency", 0);
  } else {
    context->flags |= AV_CODEC_FLAG_QSCALE;
    context->global_quality = 4 * FF_QP2LAMBDA;
  }
  int rc = avcodec_open2(context.get(), encoder, nullptr);
  if (rc < 0) return rc;
  rc = avcodec_parameters_from_context(parameters.get(), context.get());
  if (rc < 0) return rc;
  m_Context = std::move(context);
  m_Parameters = std::move(parameters);
  return 0;
}

int VideoEncoder::Encode(const AVFrame& picture, AVPacket& packet) {
  av_packet_unref(&packet);
  const int rc = avcodec_send_frame(m_Context.get(), &picture);
  return rc < 0 ? rc : avcodec_receive_packet(m_Context.get(), &packet);
}

}  // namespace oculora
