// The FFmpeg headers the recorder uses, and owners for what they hand out.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/error.h>
#include <libavutil/log.h>
#include <libavutil/opt.h>
}

#include <memory>

namespace oculora {

struct AvDeleter {
  void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
  void operator()(AVIOContext* io) const { avio_closep(&io); }
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
  void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
  void operator()(AVBSFContext* context) const { av_bsf_free(&context); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};

template <typename T>
using AvPtr = std::unique_ptr<T, AvDeleter>;

}  // namespace oculora
